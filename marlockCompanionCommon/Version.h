#pragma once

#include <QString>

// The library's version, as "major.minor.patch".
QString marlockCompanionCommonVersion();
