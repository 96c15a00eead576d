#include "marlockCompanionCommon/graphics/ShapeLayer.h"

#include <QLineF>
#include <QPainter>

#include <algorithm>

namespace graphics {

ShapeLayer::ShapeLayer() = default;
ShapeLayer::~ShapeLayer() = default;

void ShapeLayer::setPath(const QPainterPath& path) {
    path_ = path;
    setNeedsRedraw();
}

void ShapeLayer::setStrokeColor(const std::optional<QColor>& color) {
    strokeColor_ = color;
    setNeedsRedraw();
}

void ShapeLayer::setFillColor(const std::optional<QColor>& color) {
    fillColor_ = color;
    setNeedsRedraw();
}

void ShapeLayer::setLineWidth(double width) {
    changeAnimatableProperty(QStringLiteral("lineWidth"), lineWidth_, width);
}

void ShapeLayer::setStrokeStart(double fraction) {
    changeAnimatableProperty(QStringLiteral("strokeStart"), strokeStart_, fraction);
}

void ShapeLayer::setStrokeEnd(double fraction) {
    changeAnimatableProperty(QStringLiteral("strokeEnd"), strokeEnd_, fraction);
}

QVariant ShapeLayer::propertyValue(const QString& property) const {
    if (property == u"lineWidth")
        return lineWidth_;
    if (property == u"strokeStart")
        return strokeStart_;
    if (property == u"strokeEnd")
        return strokeEnd_;
    return Layer::propertyValue(property);
}

std::unique_ptr<Layer> ShapeLayer::makePresentationCopy() const {
    auto copy = std::make_unique<ShapeLayer>();
    copyLayerProperties(*copy);
    copy->path_ = path_;
    copy->strokeColor_ = strokeColor_;
    copy->fillColor_ = fillColor_;
    copy->lineWidth_ = presentationValue(QStringLiteral("lineWidth")).toDouble();
    copy->strokeStart_ = presentationValue(QStringLiteral("strokeStart")).toDouble();
    copy->strokeEnd_ = presentationValue(QStringLiteral("strokeEnd")).toDouble();
    return copy;
}

QPainterPath ShapeLayer::trimmedPath(const QPainterPath& path, double start, double end) {
    start = std::clamp(start, 0.0, 1.0);
    end = std::clamp(end, 0.0, 1.0);
    if (start <= 0.0 && end >= 1.0)
        return path;
    QPainterPath trimmed;
    if (end <= start)
        return trimmed;
    const QList<QPolygonF> polygons = path.toSubpathPolygons();
    qreal total = 0;
    for (const QPolygonF& polygon : polygons) {
        for (qsizetype i = 1; i < polygon.size(); ++i)
            total += QLineF(polygon[i - 1], polygon[i]).length();
    }
    const qreal from = start * total;
    const qreal to = end * total;
    qreal walked = 0;
    for (const QPolygonF& polygon : polygons) {
        bool drawing = false;
        for (qsizetype i = 1; i < polygon.size(); ++i) {
            const QLineF segment(polygon[i - 1], polygon[i]);
            const qreal length = segment.length();
            const qreal segmentStart = walked;
            walked += length;
            if (walked < from || segmentStart > to || length <= 0)
                continue;
            const QPointF a = segment.pointAt(std::max(0.0, (from - segmentStart) / length));
            const QPointF b = segment.pointAt(std::min(1.0, (to - segmentStart) / length));
            if (!drawing) {
                trimmed.moveTo(a);
                drawing = true;
            }
            trimmed.lineTo(b);
        }
    }
    return trimmed;
}

void ShapeLayer::drawInContext(QPainter& painter) const {
    if (path_.isEmpty())
        return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    if (fillColor_)
        painter.fillPath(path_, *fillColor_);
    const double width = presentationValue(QStringLiteral("lineWidth")).toDouble();
    if (strokeColor_ && width > 0) {
        const QPainterPath stroke =
            trimmedPath(path_, presentationValue(QStringLiteral("strokeStart")).toDouble(),
                        presentationValue(QStringLiteral("strokeEnd")).toDouble());
        painter.strokePath(stroke, QPen(*strokeColor_, width, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
    }
    painter.restore();
}

} // namespace graphics
