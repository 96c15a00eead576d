#include "marlockCompanionCommon/display/AcquireRelinquishBox.h"

#include "marlockCompanionCommon/platform/runtime/FatalError.h"

namespace acquire_relinquish {

void countOutOfRange(const char* operation) {
    platform::fatalError(
        QStringLiteral("AcquireRelinquishBox: %1 overflows the holder count").arg(QLatin1String(operation)));
}

} // namespace acquire_relinquish
