#pragma once

#include "marlockCompanionCommon/platform/FatalError.h"

#include <QString>

#include <source_location>

// Fatal stops of the encrypted container report under one unit name, whatever the source file,
// so that a crash report points at the subsystem rather than at one of its files.
[[noreturn]] inline void cryptorFatalError(const QString& message,
                                           std::source_location where = std::source_location::current()) {
    platform::fatalError(message, "marlockCompanionCommon/RNCryptor", static_cast<int>(where.line()));
}

// Stops the process when a caller broke a size or value guarantee that the format relies on.
inline void cryptorPrecondition(bool condition, const char* message,
                                std::source_location where = std::source_location::current()) {
    if (!condition)
        cryptorFatalError(QStringLiteral("Precondition failed: %1").arg(QLatin1String(message)), where);
}
