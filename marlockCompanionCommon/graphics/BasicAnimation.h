#pragma once

#include "marlockCompanionCommon/graphics/MediaTimingFunction.h"

#include <QString>
#include <QVariant>

namespace graphics {

// An animation of one animatable property of a layer (Layer::addAnimation), from a value to the
// layer's model value, over a duration, along a timing curve.
//
// Key paths name a property and, for geometry, a part of it: "bounds", "bounds.origin",
// "bounds.origin.y", "bounds.size.width", "position", "position.x", and the shape layer's
// "strokeStart", "strokeEnd" and "lineWidth". Values are doubles, QPointF, QSizeF or QRectF to
// match the part named.
//
//   container->addAnimation(graphics::BasicAnimation("bounds.origin.y", 0.0, 0.5), "scroll");
struct BasicAnimation {
    BasicAnimation() = default;
    BasicAnimation(QString keyPath, QVariant fromValue, double duration = 0.0,
                   MediaTimingFunction timingFunction = {})
        : keyPath(std::move(keyPath))
        , fromValue(std::move(fromValue))
        , duration(duration)
        , timingFunction(timingFunction) {}

    QString keyPath;
    // Where the animation starts. It ends at the model value the property has when the
    // animation is added (so set the model value first).
    QVariant fromValue;
    // Seconds; zero or less takes the duration of the current transaction (0.25 s by default).
    double duration = 0.0;
    // Linear unless set.
    MediaTimingFunction timingFunction;
};

} // namespace graphics
