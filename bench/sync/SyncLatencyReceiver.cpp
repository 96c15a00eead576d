// The other process of the sync benchmark: the product's shared manager over the suite, keychain
// and cloud folder its environment names. Prints "ready" once started, then, each time it has read
// new records after a change made elsewhere, the monotonic time in ns and the records' summary.
#include "tests/sync/SyncRecords.h"

#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"

#include <QCoreApplication>

#include <cstdio>
#include <ctime>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    iCloudManager* manager = iCloudManager::sharedManager();
    (void)platform::NotificationCenter::defaultCenter().addObserver(
        iCloudManager::tokenRecordsDidChangeExternallyNotification, manager, nullptr, [manager](const auto&) {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            std::printf("%lld %s\n", static_cast<long long>(now.tv_sec) * 1'000'000'000LL + now.tv_nsec,
                        qPrintable(synctest::summary(manager->tokenRecords())));
            std::fflush(stdout);
        });
    manager->start();
    std::puts("ready");
    std::fflush(stdout);
    return app.exec();
}
