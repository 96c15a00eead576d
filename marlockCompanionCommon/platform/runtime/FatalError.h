#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>

#include <string_view>

namespace platform {

// Stops the process for a condition that cannot happen on a sound system (the random source
// failing, a settings suite that cannot be opened, a value out of range that is not clamped).
// Writes "<unit>:<line>: Fatal error: <message>" to standard error, then aborts.
//
// The unit and line default to the caller's source file, as a path from the repository root
// ("marlockCompanionCommon/timing/Delay.cpp"), and line; subsystems that report under a fixed
// unit name pass it explicitly:
//
//   platform::fatalError(QStringLiteral("SECURITY FAILURE: …"),
//                        "marlockCompanionCommon/RNCryptor", __LINE__);
//
// (__builtin_FILE/__builtin_LINE rather than std::source_location: clang 14, which builds the
// fuzzers, has no std::source_location with this standard library.)
[[noreturn]] MCC_EXPORT void fatalError(const QString& message, std::string_view unit = __builtin_FILE(),
                                        int line = __builtin_LINE());

} // namespace platform
