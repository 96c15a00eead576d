#pragma once

#include "marlockCompanionCommon/graphics/Layer.h"

#include <QPainterPath>

namespace graphics {

// A layer that draws a path: filled, then stroked from the fraction strokeStart() to the
// fraction strokeEnd() of its length. strokeStart, strokeEnd and lineWidth animate implicitly
// (Layer, Transaction); the fractions are stored as given and clamped to [0, 1] only when drawn.
// Strokes have flat caps and mitred joins.
//
//   auto bar = std::make_unique<graphics::ShapeLayer>();
//   bar->setPath(line);
//   bar->setStrokeColor(QColor(Qt::red));
//   bar->setStrokeEnd(0.25);   // animates over 0.25 s unless actions are disabled
class MCC_EXPORT ShapeLayer : public Layer {
public:
    ShapeLayer();
    ~ShapeLayer() override;

    QPainterPath path() const { return path_; }
    void setPath(const QPainterPath& path);
    // None by default: no stroke.
    std::optional<QColor> strokeColor() const { return strokeColor_; }
    void setStrokeColor(const std::optional<QColor>& color);
    // Opaque black by default (a path without area, such as a line, shows no fill).
    std::optional<QColor> fillColor() const { return fillColor_; }
    void setFillColor(const std::optional<QColor>& color);
    // 1 by default.
    double lineWidth() const { return lineWidth_; }
    void setLineWidth(double width);
    // 0 and 1 by default.
    double strokeStart() const { return strokeStart_; }
    void setStrokeStart(double fraction);
    double strokeEnd() const { return strokeEnd_; }
    void setStrokeEnd(double fraction);

    // The part of `path` from the fraction `start` to the fraction `end` of its length (each
    // clamped to [0, 1]; curves are measured along their flattened polygons).
    static QPainterPath trimmedPath(const QPainterPath& path, double start, double end);

protected:
    void drawInContext(QPainter& painter) const override;
    QVariant propertyValue(const QString& property) const override;
    std::unique_ptr<Layer> makePresentationCopy() const override;

private:
    QPainterPath path_;
    std::optional<QColor> strokeColor_;
    std::optional<QColor> fillColor_ = QColor(Qt::black);
    double lineWidth_ = 1.0;
    double strokeStart_ = 0.0;
    double strokeEnd_ = 1.0;
};

} // namespace graphics
