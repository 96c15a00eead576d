#include "marlockCommon/TimeSource.h"

#include <chrono>
#include <mutex>

namespace {

std::mutex& sourceMutex() {
    static std::mutex mutex;
    return mutex;
}

std::function<double()>& overriddenSource() {
    static std::function<double()> source;
    return source;
}

} // namespace

double timeIntervalSince1970() {
    {
        std::lock_guard lock(sourceMutex());
        if (const auto& source = overriddenSource())
            return source();
    }
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
}

void setTimeIntervalSince1970Source(std::function<double()> source) {
    std::lock_guard lock(sourceMutex());
    overriddenSource() = std::move(source);
}
