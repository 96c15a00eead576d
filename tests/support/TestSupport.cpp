#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QThread>
#include <QUuid>

namespace testsupport {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired())
            return condition();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::usleep(200);
    }
    return true;
}

void spinEventLoop(std::chrono::milliseconds duration) {
    QDeadlineTimer deadline(duration);
    while (!deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::usleep(200);
    }
}

ScopedIsolatedHome::ScopedIsolatedHome()
    : oldConfig_(qgetenv("XDG_CONFIG_HOME"))
    , oldData_(qgetenv("XDG_DATA_HOME"))
    , oldGroup_(qgetenv("MARLOCK_APPLICATION_GROUP")) {
    QDir(dir_.path()).mkpath(QStringLiteral("config"));
    QDir(dir_.path()).mkpath(QStringLiteral("data"));
    qputenv("XDG_CONFIG_HOME", (dir_.path() + QStringLiteral("/config")).toUtf8());
    qputenv("XDG_DATA_HOME", (dir_.path() + QStringLiteral("/data")).toUtf8());
    qputenv("MARLOCK_APPLICATION_GROUP",
            QStringLiteral("test.group.%1").arg(QUuid::createUuid().toString(QUuid::Id128)).toUtf8());
}

ScopedIsolatedHome::~ScopedIsolatedHome() {
    auto restore = [](const char* name, const QByteArray& value) {
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    };
    restore("XDG_CONFIG_HOME", oldConfig_);
    restore("XDG_DATA_HOME", oldData_);
    restore("MARLOCK_APPLICATION_GROUP", oldGroup_);
}

} // namespace testsupport
