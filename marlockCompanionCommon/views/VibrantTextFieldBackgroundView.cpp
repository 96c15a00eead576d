#include "marlockCompanionCommon/views/VibrantTextFieldBackgroundView.h"

#include "marlockCompanionCommon/platform/runtime/SystemVersion.h"

#include <QPainter>

namespace {
// The strength of a tertiary label: text that must be seen but not read.
constexpr float tertiaryLabelAlpha = 0.26f;
} // namespace

VibrantTextFieldBackgroundView::VibrantTextFieldBackgroundView(QWidget* parent)
    : QWidget(parent) {}

VibrantTextFieldBackgroundView::~VibrantTextFieldBackgroundView() = default;

QColor VibrantTextFieldBackgroundView::fillColor() {
    const float white = platform::isOperatingSystemAtLeastVersion({10, 12, 0}) ? 0.8f : 0.25f;
    return QColor::fromRgbF(white, white, white, 0.25f);
}

QColor VibrantTextFieldBackgroundView::strokeColor() const {
    QColor color = palette().color(QPalette::WindowText);
    color.setAlphaF(color.alphaF() * tertiaryLabelAlpha);
    return color;
}

QPainterPath VibrantTextFieldBackgroundView::backgroundPath() const {
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 2.5, 2.5);
    return path;
}

void VibrantTextFieldBackgroundView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPainterPath path = backgroundPath();
    painter.fillPath(path, fillColor());
    painter.strokePath(path, QPen(strokeColor(), 1.0));
}
