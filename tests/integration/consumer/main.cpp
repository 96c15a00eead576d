// A host program as a user of the installed library writes it.
#include <marlockCommon/TimeSource.h>
#include <marlockCompanionCommon/Version.h>
#include <marlockCompanionCommon/platform/runtime/Identity.h>

#include <cstdio>

int main() {
    if (timeIntervalSince1970() < 1e9)
        return 1;
    std::printf("consumer ok %s %s\n", qPrintable(marlockCompanionCommonVersion()),
                qPrintable(platform::Identity::bundleIdentifier()));
    return 0;
}
