#include "marlockCompanionCommon/graphics/MediaTimingFunction.h"

namespace graphics {

MediaTimingFunction::MediaTimingFunction(double c1x, double c1y, double c2x, double c2y)
    : c1_(c1x, c1y)
    , c2_(c2x, c2y) {}

MediaTimingFunction MediaTimingFunction::linear() {
    return {};
}

MediaTimingFunction MediaTimingFunction::easeIn() {
    return {0.42, 0.0, 1.0, 1.0};
}

MediaTimingFunction MediaTimingFunction::easeOut() {
    return {0.0, 0.0, 0.58, 1.0};
}

MediaTimingFunction MediaTimingFunction::easeInEaseOut() {
    return {0.42, 0.0, 0.58, 1.0};
}

MediaTimingFunction MediaTimingFunction::defaultTiming() {
    return {0.25, 0.1, 0.25, 1.0};
}

double MediaTimingFunction::valueForProgress(double progress) const {
    return toEasingCurve().valueForProgress(progress);
}

QEasingCurve MediaTimingFunction::toEasingCurve() const {
    if (*this == linear())
        return QEasingCurve(QEasingCurve::Linear);
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(c1_, c2_, QPointF(1.0, 1.0));
    return curve;
}

} // namespace graphics
