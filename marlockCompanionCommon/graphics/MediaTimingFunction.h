#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QEasingCurve>
#include <QPointF>

namespace graphics {

// How an animation's progress maps to its value over time: a cubic Bézier curve from (0, 0) to
// (1, 1) with two control points, as in CSS's cubic-bezier(). The named curves are the standard
// ones (CSS Easing Functions Level 1).
//
//   auto curve = graphics::MediaTimingFunction(0.0, 0.0, 0.1, 1.0);   // fast start, long settle
//   double eased = curve.valueForProgress(0.5);
class MCC_EXPORT MediaTimingFunction {
public:
    // Linear timing.
    MediaTimingFunction() = default;
    // The curve with control points (c1x, c1y) and (c2x, c2y). The x values belong in [0, 1].
    MediaTimingFunction(double c1x, double c1y, double c2x, double c2y);

    static MediaTimingFunction linear();
    static MediaTimingFunction easeIn();        // (0.42, 0, 1, 1)
    static MediaTimingFunction easeOut();       // (0, 0, 0.58, 1)
    static MediaTimingFunction easeInEaseOut(); // (0.42, 0, 0.58, 1)
    // The timing of implicit animations: (0.25, 0.1, 0.25, 1), CSS's "ease".
    static MediaTimingFunction defaultTiming();

    QPointF controlPoint1() const { return c1_; }
    QPointF controlPoint2() const { return c2_; }

    // The eased progress for a linear progress in [0, 1].
    double valueForProgress(double progress) const;
    // The same curve for Qt's animation framework.
    QEasingCurve toEasingCurve() const;

    bool operator==(const MediaTimingFunction&) const = default;

private:
    QPointF c1_{0.0, 0.0};
    QPointF c2_{1.0, 1.0};
};

} // namespace graphics
