#include "marlockCompanionCommon/timing/Delay.h"

#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include <cmath>

qint64 delayNanoseconds(double seconds) {
    const double nanoseconds = seconds * 1'000'000'000.0;
    if (!std::isfinite(nanoseconds))
        platform::fatalError(
            QStringLiteral("Double value cannot be converted to Int64 because it is either infinite or NaN"));
    // 2^63 is exact as a double; the largest qint64 is not.
    if (nanoseconds >= 9'223'372'036'854'775'808.0)
        platform::fatalError(QStringLiteral(
            "Double value cannot be converted to Int64 because the result would be greater than "
            "Int64.max"));
    if (nanoseconds <= -9'223'372'036'854'775'808.0)
        platform::fatalError(
            QStringLiteral("Double value cannot be converted to Int64 because the result would be less than "
                           "Int64.min"));
    // The conversion truncates toward zero.
    return static_cast<qint64>(nanoseconds);
}

void delay(double seconds, std::function<void()> closure) {
    platform::dispatchAfterMain(delayNanoseconds(seconds), std::move(closure));
}
