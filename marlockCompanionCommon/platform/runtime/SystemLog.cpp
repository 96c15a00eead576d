#include "marlockCompanionCommon/platform/runtime/SystemLog.h"

#include <mutex>
#include <syslog.h>

namespace platform {
namespace {

std::mutex& captureMutex() {
    static std::mutex mutex;
    return mutex;
}

SystemLogCapture::Sink& currentSink() {
    static SystemLogCapture::Sink sink;
    return sink;
}

void openLogOnce() {
    static std::once_flag once;
    std::call_once(once, [] { openlog("marlockCompanionCommon", LOG_PID, LOG_USER); });
}

} // namespace

void systemLog(const QString& message) {
    openLogOnce();
    const QByteArray text = message.toUtf8();
    syslog(LOG_NOTICE, "%s", text.constData());
    SystemLogCapture::Sink sink;
    {
        std::lock_guard lock(captureMutex());
        sink = currentSink();
    }
    if (sink)
        sink(message);
}

SystemLogCapture::SystemLogCapture(Sink sink) {
    std::lock_guard lock(captureMutex());
    previous_ = std::exchange(currentSink(), std::move(sink));
}

SystemLogCapture::~SystemLogCapture() {
    std::lock_guard lock(captureMutex());
    currentSink() = std::move(previous_);
}

} // namespace platform
