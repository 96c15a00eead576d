#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QtGlobal>

#include <compare>

namespace platform {

// The running operating system's version as the library's version checks read it (the code
// display asks for 10.11 before raising colons, the text-field background for 10.12 before
// choosing its light fill).
//
// Those thresholds are releases of the desktop platform the library was first written for. On
// Linux there is no such release to report, so the library reports 10.12.0: the lowest version
// at which every check it makes takes its current branch. Tests replace the value with
// ScopedOperatingSystemVersion to reach the older branches. Thread-safe.
//
//   if (platform::isOperatingSystemAtLeastVersion({10, 12, 0}))
//       fill = QColor::fromRgbF(0.8, 0.8, 0.8, 0.25);
struct MCC_EXPORT OperatingSystemVersion {
    qint64 majorVersion = 0;
    qint64 minorVersion = 0;
    qint64 patchVersion = 0;

    // Ordered by major, then minor, then patch version.
    auto operator<=>(const OperatingSystemVersion&) const = default;
};

// The version reported on this system (10.12.0 on Linux, unless a test has replaced it).
MCC_EXPORT OperatingSystemVersion operatingSystemVersion();

// Whether the reported version is `version` or later.
MCC_EXPORT bool isOperatingSystemAtLeastVersion(const OperatingSystemVersion& version);

// Test hook: reports `version` while the object lives, then the previous value again.
//
//   platform::ScopedOperatingSystemVersion older({10, 11, 6});
class MCC_EXPORT ScopedOperatingSystemVersion {
public:
    explicit ScopedOperatingSystemVersion(const OperatingSystemVersion& version);
    ~ScopedOperatingSystemVersion();
    ScopedOperatingSystemVersion(const ScopedOperatingSystemVersion&) = delete;
    ScopedOperatingSystemVersion& operator=(const ScopedOperatingSystemVersion&) = delete;

private:
    OperatingSystemVersion previous_;
};

} // namespace platform
