// Two devices sharing one WebDAV collection on a real Apache httpd: each has its own settings
// suite, keychain service and cloud store, and only the server carries data between them (both
// live in this test process, so they share its session bus; every read below waits for the
// records the server brought, never for the other manager's announcement).
#include "tests/platform/storage/webdav/ApacheServer.h"
#include "tests/sync/SyncTestSupport.h"

#include <QUuid>

using namespace synctest;
using testsupport::waitUntil;
using namespace std::chrono_literals;

namespace {

class Device {
public:
    explicit Device(const QString& collection)
        : store(platform::makeWebdavUbiquitousKeyValueStoreBackend(
              webdavtest::configurationFor(webdavtest::ApacheServer::shared(), collection))) {
        manager = std::make_unique<iCloudManager>(
            suite, std::make_unique<FXKeychain>(service, service, 0, platform::KeychainServices::shared()),
            &store);
    }
    ~Device() {
        manager.reset();
        (void)platform::KeychainServices::shared()->itemDelete(
            platform::KeychainQuery{platform::KeychainClass::genericPassword, service, std::nullopt});
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    QString records() const { return summary(manager->tokenRecords()); }

    const QString service =
        QStringLiteral("marlock-webdav-test-") + QUuid::createUuid().toString(QUuid::Id128);
    platform::UserDefaults* const suite = platform::UserDefaults::suiteNamed(service);
    platform::UbiquitousKeyValueStore store;
    std::unique_ptr<iCloudManager> manager;
};

TEST(SyncOverWebdav, TwoDevicesExchangeRecordsBothWaysAndARaceSettlesOnOneTheLoserIsToldOf) {
    ASSERT_TRUE(webdavtest::ApacheServer::shared().start())
        << webdavtest::ApacheServer::shared().problem().toStdString();
    testsupport::ScopedIsolatedHome home;
    const QString collection = webdavtest::freshCollection();
    Device a(collection), b(collection);
    for (Device* device : {&a, &b}) {
        device->manager->enableiCloudWithPassword(QStringLiteral("shared passcode"), true);
        device->manager->start();
    }

    const auto fromA = sampleRecords(3, 20, QStringLiteral("A"));
    a.manager->setTokenRecords(fromA);
    EXPECT_TRUE(waitUntil([&] { return b.records() == summary(fromA); }, 10s)) << b.records().toStdString();

    const auto fromB = sampleRecords(5, 20, QStringLiteral("B"));
    b.manager->setTokenRecords(fromB);
    EXPECT_TRUE(waitUntil([&] { return a.records() == summary(fromB); }, 10s)) << a.records().toStdString();

    // Both write before either hears of the other: both name the same version, the server
    // keeps one, and the other device reads the winner and is told. Nobody keeps a value the
    // server does not hold. (Which write the server refuses, and whether it refuses one at all,
    // is the server's: Apache checks If-Match and writes without a lock, so two nearly
    // simultaneous writes can both be accepted, the later replacing the earlier.)
    ManagerNotifications heardByA(a.manager.get()), heardByB(b.manager.get());
    const auto raceA = sampleRecords(2, 20, QStringLiteral("race A"));
    const auto raceB = sampleRecords(2, 20, QStringLiteral("race B"));
    a.manager->setTokenRecords(raceA);
    b.manager->setTokenRecords(raceB);
    ASSERT_TRUE(waitUntil(
        [&] {
            return a.records() == b.records() &&
                   (a.records() == summary(raceA) || a.records() == summary(raceB));
        },
        15s))
        << a.records().toStdString() << " / " << b.records().toStdString();
    const bool aWon = a.records() == summary(raceA);
    const ManagerNotifications& loser = aWon ? heardByB : heardByA;
    EXPECT_TRUE(loser.names.contains(iCloudManager::tokenRecordsDidChangeExternallyNotification))
        << "the device whose write lost is told of the records that won";
}

} // namespace
