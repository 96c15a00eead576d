// What arrives in the cloud folder from outside: token data written by another program that
// shares nothing with this library, data damaged on the way, and writers killed mid-write.
#include "tests/RNCryptor/ReferenceContainer.h"
#include "tests/platform/storage/CloudStoreTestSupport.h"
#include "tests/sync/SyncPeerProcess.h"
#include "tests/sync/SyncTestSupport.h"

#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"

#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>

#include <csignal>

using namespace synctest;
using namespace std::chrono_literals;

namespace {

class SyncStoreData : public ::testing::Test {
protected:
    SyncStoreData() {
        manager->enableiCloudWithPassword(QStringLiteral("passcode"), true);
        manager->start();
    }
    void deliver(const QByteArray& content) {
        cloudtest::deliverFile(stores.folder, QStringLiteral("tokens"), content);
    }

    ManagerStores stores;
    std::unique_ptr<iCloudManager> manager = stores.makeManager();
    ManagerNotifications heard{manager.get()};
};

TEST_F(SyncStoreData, AContainerWrittenByAnotherProgramIsPickedUpAndOpened) {
    QProcess python;
    const QString archivePath = stores.home.path() + QStringLiteral("/archive");
    python.start(QStringLiteral("python3"),
                 {QStringLiteral(MARLOCK_SOURCE_DIR "/tests/sync/interop/token_archive.py"), archivePath});
    ASSERT_TRUE(python.waitForFinished() && python.exitCode() == 0)
        << python.readAllStandardError().toStdString();
    QFile archive(archivePath);
    ASSERT_TRUE(archive.open(QIODevice::ReadOnly));
    deliver(reference::encryptWithPassword(archive.readAll(), QStringLiteral("passcode"),
                                           reference::pattern(8, 1), reference::pattern(8, 2),
                                           reference::pattern(16, 3)));

    ASSERT_TRUE(testsupport::waitUntil([&] { return manager->tokenRecords().has_value(); }));
    const auto& records = *manager->tokenRecords();
    ASSERT_EQ(records.size(), 2);
    EXPECT_EQ(records[0].issuer, QStringLiteral("Foreign"));
    EXPECT_EQ(records[0].algorithm, marlockCommon::OTPAlgorithm::sha256);
    EXPECT_EQ(records[0].digits, 8);
    EXPECT_EQ(records[0].period, 60);
    EXPECT_EQ(records[0].secret, "12345678901234567890");
    EXPECT_EQ(records[1].type, marlockCommon::OTPType::hotp);
    EXPECT_EQ(records[1].issuer, QStringLiteral("Élan"));
    EXPECT_EQ(records[1].secret, QByteArray("\x00\xff\x10", 3));
    EXPECT_EQ(records[1].counter, 42u);
    EXPECT_EQ(heard.names.last(), iCloudManager::tokenRecordsDidChangeExternallyNotification);
}

TEST_F(SyncStoreData, DamagedOrForeignDataIsReportedAndLosesNothingElse) {
    manager->setTokenRecords(sampleRecords(3));
    const QByteArray good = stores.store.dataForKey(QStringLiteral("tokens")).value();
    stores.store.setData("kept", QStringLiteral("other"));
    QByteArray flipped = good;
    flipped[good.size() / 2] = static_cast<char>(flipped[good.size() / 2] ^ 0x01);
    const std::vector<std::pair<const char*, QByteArray>> damaged = {
        {"truncated", good.left(good.size() - 7)},
        {"one bit flipped", flipped},
        {"under another passcode",
         reference::encryptWithPassword("x", QStringLiteral("other"), reference::pattern(8, 4),
                                        reference::pattern(8, 5), reference::pattern(16, 6))},
        {"not a container", "{\"tokens\": []}"},
        {"empty", QByteArray()},
        {"over the store's limit", QByteArray(platform::UbiquitousKeyValueStore::maximumValueSize + 1, 'x')},
    };
    for (const auto& [what, bytes] : damaged) {
        SCOPED_TRACE(what);
        heard.clear();
        deliver(bytes);
        ASSERT_TRUE(testsupport::waitUntil(
            [&] { return heard.names.contains(iCloudManager::couldNotRetrieveTokenRecordsNotification); }));
        const bool oversized = bytes.size() > platform::UbiquitousKeyValueStore::maximumValueSize;
        EXPECT_EQ(heard.reasons.last(),
                  oversized ? QStringLiteral("iCloudNotEnabled") : QStringLiteral("IncorrectPassword"));
        EXPECT_EQ(manager->tokenRecords(), std::nullopt);
        // Nothing else suffers: sync stays on, the saved passcode and the other values stay.
        EXPECT_TRUE(manager->iCloudEnabled());
        EXPECT_EQ(stores.store.dataForKey(QStringLiteral("other")), "kept");
        deliver(good);
        ASSERT_TRUE(testsupport::waitUntil([&] { return manager->tokenRecords() == sampleRecords(3); }));
        EXPECT_EQ(manager->lastError(), std::nullopt);
    }
}

// A writer killed at any moment leaves the value before its write or after it, never a mix.
TEST_F(SyncStoreData, AWriterKilledMidWriteNeverLeavesATornValue) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("MARLOCK_CLOUD_FOLDER"), stores.folder);
    constexpr int trials = 40;
    int opened = 0;
    for (int trial = 0; trial < trials; ++trial) {
        {
            PeerProcess writer({QStringLiteral("hammer"), QStringLiteral("passcode"), QStringLiteral("3")},
                               environment);
            ASSERT_TRUE(writer.waitFor(QStringLiteral("ready"), 30s)) << writer.transcript().toStdString();
            QThread::usleep(QRandomGenerator::global()->bounded(20000));
            ::kill(static_cast<pid_t>(writer.process().processId()), SIGKILL);
            writer.process().waitForFinished();
        }
        QFile file(stores.folder + QStringLiteral("/tokens"));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << "trial " << trial;
        const std::optional<QByteArray> archive =
            reference::decryptWithPassword(file.readAll(), QStringLiteral("passcode"));
        ASSERT_TRUE(archive.has_value()) << "trial " << trial << " left a value that does not open";
        opened += jr_unarchiveData(*archive, true, {QStringLiteral("OTPToken")}).has_value();
    }
    EXPECT_EQ(opened, trials);
    std::printf("[ figures  ] %d writers killed with SIGKILL mid-write: every value left opened\n", trials);
}

} // namespace
