#include "marlockCompanionCommon/platform/runtime/SystemVersion.h"

#include <mutex>
#include <utility>

namespace platform {
namespace {

std::mutex versionMutex;
OperatingSystemVersion reportedVersion{10, 12, 0};

OperatingSystemVersion exchangeVersion(const OperatingSystemVersion& version) {
    std::lock_guard lock(versionMutex);
    return std::exchange(reportedVersion, version);
}

} // namespace

OperatingSystemVersion operatingSystemVersion() {
    std::lock_guard lock(versionMutex);
    return reportedVersion;
}

bool isOperatingSystemAtLeastVersion(const OperatingSystemVersion& version) {
    return operatingSystemVersion() >= version;
}

ScopedOperatingSystemVersion::ScopedOperatingSystemVersion(const OperatingSystemVersion& version)
    : previous_(exchangeVersion(version)) {}

ScopedOperatingSystemVersion::~ScopedOperatingSystemVersion() {
    exchangeVersion(previous_);
}

} // namespace platform
