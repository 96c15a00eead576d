#pragma once

#include "marlockCompanionCommon/platform/runtime/FatalError.h"

#include <QString>

namespace RNCryptor::internal {

// Fatal stops of the encrypted container report under one unit name, whatever the source file,
// so that a crash report points at the subsystem rather than at one of its files.
[[noreturn]] inline void cryptorFatalError(const QString& message, int line = __builtin_LINE()) {
    platform::fatalError(message, "marlockCompanionCommon/RNCryptor", line);
}

// Stops the process when a caller broke a size or value guarantee that the format relies on.
inline void cryptorPrecondition(bool condition, const char* message, int line = __builtin_LINE()) {
    if (!condition)
        cryptorFatalError(QStringLiteral("Precondition failed: %1").arg(QLatin1String(message)), line);
}

} // namespace RNCryptor::internal
