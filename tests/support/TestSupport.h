#pragma once

#include <QString>
#include <QTemporaryDir>

#include <chrono>
#include <functional>

namespace testsupport {

// Runs the Qt event loop until `condition` holds or `timeout` passes; returns the condition's
// last value. For waiting on queued deliveries, never for asserting how long something takes.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::milliseconds(5000));

// Runs the Qt event loop for `duration` (to let queued work that must NOT happen show itself).
void spinEventLoop(std::chrono::milliseconds duration);

// Points XDG_CONFIG_HOME, XDG_DATA_HOME and the application group at a fresh temporary folder
// for the lifetime of the object, so tests never touch a user's real settings or data.
class ScopedIsolatedHome {
public:
    ScopedIsolatedHome();
    ~ScopedIsolatedHome();
    QString path() const { return dir_.path(); }

private:
    QTemporaryDir dir_;
    QByteArray oldConfig_, oldData_, oldGroup_;
};

} // namespace testsupport
