#include "marlockCompanionCommon/graphics/internal/RunningAnimation.h"

#include "marlockCompanionCommon/graphics/internal/KeyPath.h"

#include <algorithm>
#include <cmath>

namespace graphics::internal {

RunningAnimation::RunningAnimation(QString key, const BasicAnimation& animation, const QVariant& from,
                                   const QVariant& to)
    : key_(std::move(key))
    , animation_(animation)
    , driver_(std::make_unique<QVariantAnimation>()) {
    std::tie(property_, subPath_) = splitKeyPath(animation.keyPath);
    driver_->setStartValue(from);
    driver_->setEndValue(to);
    // Qt animations count whole milliseconds; a roll's shortest stagger step is far longer.
    driver_->setDuration(std::max(1, static_cast<int>(std::lround(animation.duration * 1000.0))));
    driver_->setEasingCurve(animation.timingFunction.toEasingCurve());
}

RunningAnimation::~RunningAnimation() {
    if (driver_)
        driver_->disconnect();
}

void RunningAnimation::releaseDriverLater() {
    if (!driver_)
        return;
    driver_->disconnect();
    driver_.release()->deleteLater();
}

} // namespace graphics::internal
