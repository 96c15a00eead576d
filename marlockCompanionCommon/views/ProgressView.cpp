#include "marlockCompanionCommon/views/ProgressView.h"

#include "marlockCompanionCommon/graphics/Transaction.h"

#include <QPainter>

#include <cmath>

std::optional<ProgressView::Direction> ProgressView::directionFromRawValue(int rawValue) {
    if (rawValue == 0 || rawValue == 1)
        return static_cast<Direction>(rawValue);
    return std::nullopt;
}

ProgressView::ProgressView(QWidget* parent)
    : QWidget(parent) {
    commonInit();
}

ProgressView::~ProgressView() {
    progressLayer_->setRedrawHandler({});
}

void ProgressView::commonInit() {
    // Nothing is on screen yet, so the initial values are applied without animating to them.
    graphics::ScopedTransaction transaction(/*disableActions=*/true);
    progressLayer_ = std::make_unique<graphics::ShapeLayer>();
    // The layer draws like an unflipped desktop view: y grows upwards from the bottom edge.
    progressLayer_->setGeometryFlipped(true);
    progressLayer_->setFrame(geometry());
    // Still the layer's own line width of 1: the view's width is applied below.
    progressLayer_->setPath(path());
    progressLayer_->setRedrawHandler([this] { update(); });
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    configureTintColor();
    progressLayer_->setLineWidth(lineWidth_);
    updateGeometry();
    configureProgress();
}

void ProgressView::setProgress(double progress) {
    progress_ = progress;
    configureProgress();
}

void ProgressView::setDirection(Direction direction) {
    direction_ = direction;
    configureProgress();
}

void ProgressView::setProgress(double progress, ProgressView::Direction direction, bool animated) {
    progress_ = progress;
    direction_ = direction;
    if (animated) {
        configureProgress();
        return;
    }
    graphics::ScopedTransaction transaction(/*disableActions=*/true);
    configureProgress();
}

void ProgressView::setProgress(double progress, bool animated) {
    setProgress(progress, direction_, animated);
}

void ProgressView::setTintColor(const std::optional<QColor>& color) {
    tintColor_ = color;
    configureTintColor();
}

void ProgressView::setLineWidth(double width) {
    lineWidth_ = width;
    configureLineWidth();
}

void ProgressView::setIndicatorHidden(bool hidden) {
    indicatorHidden_ = hidden;
    progressLayer_->setHidden(hidden);
}

void ProgressView::configureProgress() {
    if (direction() == Direction::forward) {
        progressLayer_->setStrokeStart(0.0);
        progressLayer_->setStrokeEnd(progress());
    } else {
        progressLayer_->setStrokeEnd(1.0);
        progressLayer_->setStrokeStart(1.0 - progress());
    }
}

void ProgressView::configureTintColor() {
    progressLayer_->setStrokeColor(tintColor_.value_or(QColor(Qt::red)));
}

void ProgressView::configureLineWidth() {
    progressLayer_->setLineWidth(lineWidth_);
    updateGeometry();
}

QPainterPath ProgressView::path() const {
    const QRectF bounds(QPointF(0, 0), size());
    const double y = bounds.top() + progressLayer_->lineWidth() * 0.5;
    QPainterPath line;
    line.moveTo(bounds.left(), y);
    line.lineTo(bounds.right(), y);
    return line;
}

QSize ProgressView::sizeHint() const {
    return {-1, static_cast<int>(std::ceil(lineWidth_))};
}

void ProgressView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    progressLayer_->render(painter);
}

void ProgressView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    frameDidChange();
}

void ProgressView::moveEvent(QMoveEvent* event) {
    QWidget::moveEvent(event);
    frameDidChange();
}

void ProgressView::frameDidChange() {
    // Only a new frame rebuilds the path; a new line width alone keeps the old distance from the
    // bottom edge until then.
    progressLayer_->setFrame(geometry());
    progressLayer_->setPath(path());
}
