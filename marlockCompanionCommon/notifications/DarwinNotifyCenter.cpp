#include "marlockCompanionCommon/notifications/DarwinNotifyCenter.h"

#include "marlockCompanionCommon/notifications/internal/DBusDarwinNotifyCenter.h"

DarwinNotifyCenter* DarwinNotifyCenter::systemCenter() {
    // Never destroyed: centers may still withdraw their registrations during static destruction.
    static DarwinNotifyCenter* center = new notifications::internal::DBusDarwinNotifyCenter;
    return center;
}
