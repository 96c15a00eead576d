#pragma once

#include <QString>

#include <source_location>
#include <string_view>

namespace platform {

// Stops the process for a condition that cannot happen on a sound system (the random source
// failing, a settings suite that cannot be opened, a value out of range that is not clamped).
// Writes "<unit>:<line>: Fatal error: <message>" to standard error, then aborts.
//
// The unit defaults to the calling source file, as a path from the repository root
// ("marlockCompanionCommon/timing/Delay.cpp"); subsystems that report under a fixed unit name
// pass it explicitly.
#ifdef __cpp_lib_source_location
[[noreturn]] void fatalError(const QString& message,
                             const std::source_location& where = std::source_location::current());
#else
// clang 14 with libstdc++ 12 (the fuzzing build) has no std::source_location.
[[noreturn]] void fatalError(const QString& message, const char* file = __builtin_FILE(),
                             int line = __builtin_LINE());
#endif
[[noreturn]] void fatalError(const QString& message, std::string_view unit, int line);

} // namespace platform
