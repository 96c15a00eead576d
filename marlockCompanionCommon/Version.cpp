#include "marlockCompanionCommon/Version.h"

QString marlockCompanionCommonVersion() {
    return QStringLiteral(MARLOCK_VERSION);
}
