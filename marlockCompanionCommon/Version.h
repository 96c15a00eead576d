#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>

// The library's version, as "major.minor.patch".
MCC_EXPORT QString marlockCompanionCommonVersion();
