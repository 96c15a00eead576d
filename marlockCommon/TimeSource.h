#pragma once

#include "marlockCommon/Export.h"

#include <functional>

// The one clock that the code generator and the period clock share, so that ticks and codes
// always agree: the current time in seconds since 1970-01-01 00:00:00 UTC.
MARLOCK_COMMON_EXPORT double timeIntervalSince1970();

// Test seam: replaces the time source for the whole process (an empty function restores the
// system clock). Not for production code.
//
//   setTimeIntervalSince1970Source([] { return 1'000'000'005.2; });
MARLOCK_COMMON_EXPORT void setTimeIntervalSince1970Source(std::function<double()> source);
