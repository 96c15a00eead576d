#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>

#include <functional>

namespace platform {

// The system log: the library's diagnostics, written with fixed format strings, go to
// syslog(3) (and so to the journal) under the identity "marlockCompanionCommon".
// Never pass secrets here (the one documented exception is FXKeychain::newKeychainItemForKey).
MCC_EXPORT void systemLog(const QString& message);

// Test hook: while a capture is installed, every message is handed to it as well as to syslog.
// Installing one replaces the previous one; the destructor restores it. Thread-safe.
//
//   QStringList lines;
//   platform::SystemLogCapture capture([&](const QString& line) { lines << line; });
class MCC_EXPORT SystemLogCapture {
public:
    using Sink = std::function<void(const QString&)>;
    explicit SystemLogCapture(Sink sink);
    ~SystemLogCapture();
    SystemLogCapture(const SystemLogCapture&) = delete;
    SystemLogCapture& operator=(const SystemLogCapture&) = delete;

private:
    Sink previous_;
};

} // namespace platform
