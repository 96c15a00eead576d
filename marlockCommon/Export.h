#pragma once

// libmarlockCommon.so is built with hidden symbols: only what a header marks with
// MARLOCK_COMMON_EXPORT is visible to the programs that link it.
#define MARLOCK_COMMON_EXPORT __attribute__((visibility("default")))
