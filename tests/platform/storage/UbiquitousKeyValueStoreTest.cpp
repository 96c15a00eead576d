// The cloud key-value store's contract, the same over the in-memory backend, over a folder and over
// a WebDAV collection on a real Apache httpd (two stores over one storage stand for two processes
// or devices), then what only the folder does:
// file names, sync engines' files, and a folder that is missing or vanishes.
#include "tests/platform/storage/CloudStoreTestSupport.h"
#include "tests/platform/storage/webdav/ApacheServer.h"

#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "marlockCompanionCommon/platform/storage/internal/CloudFileNames.h"

#include <QFileInfo>

#include <sys/stat.h>
#include <utime.h>

using namespace platform;
using cloudtest::Announcements;
using testsupport::spinEventLoop;
using testsupport::waitUntil;
using namespace std::chrono_literals;

namespace {

constexpr qint64 serverChange = 0, quotaViolation = 2, accountChange = 3;

class StoreContract : public ::testing::TestWithParam<const char*> {
protected:
    bool inMemory() const { return QLatin1String(GetParam()) == QLatin1String("Memory"); }
    // A network store learns what the server holds only from the event loop.
    bool overNetwork() const { return QLatin1String(GetParam()) == QLatin1String("Webdav"); }

    void SetUp() override {
        if (overNetwork()) {
            ASSERT_TRUE(webdavtest::ApacheServer::shared().start())
                << webdavtest::ApacheServer::shared().problem().toStdString();
        }
    }

    std::unique_ptr<UbiquitousKeyValueStore> makeStore() {
        if (inMemory())
            return std::make_unique<UbiquitousKeyValueStore>(cloud->makeBackend());
        if (overNetwork())
            return std::make_unique<UbiquitousKeyValueStore>(makeWebdavUbiquitousKeyValueStoreBackend(
                webdavtest::configurationFor(webdavtest::ApacheServer::shared(), collection)));
        return std::make_unique<UbiquitousKeyValueStore>(
            makeFolderUbiquitousKeyValueStoreBackend(folder, true));
    }
    // A write made by no store: another device's, delivered by the sync engine (or by the server).
    void writeFromElsewhere(const QString& key, const QByteArray& value) {
        if (inMemory())
            return cloud->writeFromElsewhere(key, value);
        const QString target =
            overNetwork() ? webdavtest::ApacheServer::shared().davFolder() + QLatin1Char('/') + collection
                          : folder;
        ASSERT_TRUE(QDir().mkpath(target));
        cloudtest::deliverFile(target, internal::CloudFileNames::fileNameForKey(key), value);
    }
    // Reads `key`, after waiting for the store to catch up when it is over a network.
    std::optional<QByteArray> settledValue(UbiquitousKeyValueStore& store, const QString& key,
                                           const std::optional<QByteArray>& expected) {
        if (overNetwork())
            (void)waitUntil([&] { return store.dataForKey(key) == expected; });
        return store.dataForKey(key);
    }

    QTemporaryDir scratch;
    const QString folder = scratch.path() + QStringLiteral("/cloud");
    const QString collection = webdavtest::freshCollection();
    std::shared_ptr<UbiquitousKeyValueMemoryCloud> cloud = UbiquitousKeyValueMemoryCloud::create();
};
std::string backendName(const ::testing::TestParamInfo<const char*>& backend) {
    return backend.param;
}
INSTANTIATE_TEST_SUITE_P(, StoreContract, ::testing::Values("Memory", "Folder", "Webdav"), backendName);

TEST_P(StoreContract, AWriteIsReadBackAndAnnouncedToOtherStoresOnly) {
    auto a = makeStore(), b = makeStore();
    Announcements heardByA(a.get()), heardByB(b.get());
    QByteArray binary;
    for (int i = 0; i < 256; ++i)
        binary.append(static_cast<char>(i));

    a->setData(binary, QStringLiteral("tokens"));
    a->setData(QByteArray(), QStringLiteral("empty"));
    a->setData("replaced", QStringLiteral("tokens é/x"));
    a->setData("final", QStringLiteral("tokens é/x"));
    EXPECT_EQ(a->dataForKey(QStringLiteral("tokens")), binary);
    EXPECT_EQ(a->dataForKey(QStringLiteral("tokens é/x")), "final");
    ASSERT_TRUE(heardByB.waitFor(serverChange, QStringLiteral("tokens é/x")));
    ASSERT_TRUE(heardByB.waitFor(serverChange, QStringLiteral("empty")));
    EXPECT_EQ(b->dataForKey(QStringLiteral("tokens")), binary);
    EXPECT_EQ(settledValue(*b, QStringLiteral("tokens é/x"), "final"), "final")
        << "the last write wins, not the first seen";
    EXPECT_EQ(b->dataForKey(QStringLiteral("empty")), QByteArray());

    a->removeObjectForKey(QStringLiteral("empty"));
    heardByB.heard.clear();
    ASSERT_TRUE(heardByB.waitFor(serverChange, QStringLiteral("empty")));
    EXPECT_EQ(b->dataForKey(QStringLiteral("empty")), std::nullopt);
    spinEventLoop(200ms);
    EXPECT_TRUE(heardByA.heard.empty()) << "a store's own writes are not announced back to it";

    auto later = makeStore();
    EXPECT_EQ(settledValue(*later, QStringLiteral("tokens"), binary), binary)
        << "values outlive the store that wrote them";
    QStringList keys = later->allKeys();
    keys.sort();
    EXPECT_EQ(keys, (QStringList{"tokens", "tokens é/x"}));
}

TEST_P(StoreContract, ChangesFromElsewhereAreAnnouncedAndSynchronizeTakesThemInAtOnce) {
    auto store = makeStore();
    Announcements heard(store.get());
    writeFromElsewhere(QStringLiteral("tokens"), "from another device");
    ASSERT_TRUE(heard.waitFor(serverChange, QStringLiteral("tokens")));
    EXPECT_EQ(store->dataForKey(QStringLiteral("tokens")), "from another device");

    // Local storage: without giving the event loop a chance, the re-check alone must find the new
    // value. A network store asks the server and hears later.
    auto other = makeStore();
    writeFromElsewhere(QStringLiteral("tokens"), "newer");
    other->synchronize();
    EXPECT_EQ(settledValue(*other, QStringLiteral("tokens"), "newer"), "newer");
}

TEST_P(StoreContract, SizesOverThePlatformsLimitsAreRefusedAsQuotaViolations) {
    auto store = makeStore();
    Announcements heard(store.get());
    const QString longestKey = QString(32, QChar(0xE9)); // 64 UTF-8 bytes
    store->setData("k", longestKey);
    EXPECT_EQ(store->dataForKey(longestKey), "k");
    {
        QStringList log;
        SystemLogCapture capture([&](const QString& line) { log << line; });
        for (const QString& refused : {longestKey + QLatin1Char('x'), QString()})
            store->setData("v", refused);
        EXPECT_EQ(store->allKeys(), QStringList{longestKey});
        EXPECT_EQ(log.size(), 2) << log.join('\n').toStdString();
    }

    // Keys count toward the store's total as well as values.
    const QByteArray filling(UbiquitousKeyValueStore::maximumTotalSize - 65 - 1, 'x');
    store->setData(filling, QStringLiteral("f"));
    ASSERT_EQ(store->dataForKey(QStringLiteral("f")), filling) << "exactly at the limit";
    store->setData("yy", QStringLiteral("g"));
    store->setData(QByteArray(UbiquitousKeyValueStore::maximumValueSize + 1, 'z'), QStringLiteral("h"));
    EXPECT_EQ(store->dataForKey(QStringLiteral("g")), std::nullopt);
    EXPECT_EQ(store->dataForKey(QStringLiteral("h")), std::nullopt);
    ASSERT_TRUE(heard.waitFor(quotaViolation, QStringLiteral("g")));
    ASSERT_TRUE(heard.waitFor(quotaViolation, QStringLiteral("h")));
    store->setData("smaller", QStringLiteral("f"));
    EXPECT_EQ(store->dataForKey(QStringLiteral("f")), "smaller") << "shrinking a value is always allowed";

    // A value over the limit written elsewhere is not taken in, and says why.
    writeFromElsewhere(QStringLiteral("huge"),
                       QByteArray(UbiquitousKeyValueStore::maximumValueSize + 1, 'h'));
    ASSERT_TRUE(heard.waitFor(quotaViolation, QStringLiteral("huge")));
    EXPECT_EQ(store->dataForKey(QStringLiteral("huge")), std::nullopt);
}

class CloudFolder : public ::testing::Test {
protected:
    QTemporaryDir scratch;
    const QString folder = scratch.path() + QStringLiteral("/parent/cloud");
    static QByteArray contentOf(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
    }
};

TEST_F(CloudFolder, FilesAreNamedByTheirKeysAndReadableByTheUserAlone) {
    const std::vector<std::pair<QString, QString>> names = {
        {"tokens", "tokens"},
        {"v1.data-x_y", "v1.data-x_y"},
        {".hidden", "%2Ehidden"},
        {"~tilde", "%7Etilde"},
        {"a/b c%", "a%2Fb%20c%25"},
        {QStringLiteral("é✓"), "%C3%A9%E2%9C%93"},
        {"x.part", "x%2Epart"},               // would look like a download in progress
        {"a_conflict-b", "a%5Fconflict%2Db"}, // would look like a conflict copy
    };
    {
        UbiquitousKeyValueStore store(makeFolderUbiquitousKeyValueStoreBackend(folder, true));
        for (const auto& [key, file] : names)
            store.setData(key.toUtf8(), key);
    }
    EXPECT_EQ(QFileInfo(folder).permissions() & 0x7777, QFile::ReadOwner | QFile::WriteOwner |
                                                            QFile::ExeOwner | QFile::ReadUser |
                                                            QFile::WriteUser | QFile::ExeUser);
    for (const auto& [key, file] : names) {
        SCOPED_TRACE(key.toStdString());
        EXPECT_EQ(contentOf(folder + QLatin1Char('/') + file), key.toUtf8());
        EXPECT_EQ(QFileInfo(folder + QLatin1Char('/') + file).permissions(),
                  QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser);
        EXPECT_EQ(internal::CloudFileNames::keyForFileName(file), key);
    }
    EXPECT_EQ(QDir(folder).entryList(QDir::Files | QDir::Hidden).size(), qsizetype(names.size()))
        << "no temporary file is left behind";
}

TEST_F(CloudFolder, SyncEngineFilesAndForeignNamesAreNeitherKeysNorTouched) {
    ASSERT_TRUE(QDir().mkpath(folder));
    const QStringList foreign = {".syncthing.tokens.tmp",
                                 "~syncthing~tokens.tmp",
                                 ".~lock.tokens#",
                                 "tokens.part",
                                 ".stignore",
                                 ".sync_4f3e.db",
                                 "tokens.sync-conflict-20240101-120000-ABCDEFG",
                                 "tokens (conflicted copy 2024-01-01)",
                                 "tokens_conflict-20240101-120000",
                                 "%2etokens",
                                 "a%4",
                                 "%C3",
                                 ".hidden",
                                 "with space",
                                 "~marlock.tokens.1.0.tmp"};
    for (const QString& name : foreign)
        cloudtest::deliverFile(folder, name, "engine's");
    ASSERT_TRUE(QDir(folder).mkdir(QStringLiteral(".stfolder")));
    ASSERT_TRUE(QDir(folder).mkdir(QStringLiteral("subfolder")));
    // A writer killed long ago left this one behind: it goes; the fresh one above may be in use.
    const QString stale = folder + QStringLiteral("/~marlock.tokens.2.0.tmp");
    cloudtest::deliverFile(folder, QFileInfo(stale).fileName(), "half");
    const utimbuf old{1000, 1000};
    ASSERT_EQ(::utime(QFile::encodeName(stale).constData(), &old), 0);

    UbiquitousKeyValueStore store(makeFolderUbiquitousKeyValueStoreBackend(folder, true));
    Announcements heard(&store);
    store.setData("mine", QStringLiteral("tokens"));
    for (const QString& name : foreign)
        cloudtest::deliverFile(folder, name, "changed by the engine");
    store.synchronize();
    spinEventLoop(200ms);
    EXPECT_EQ(store.allKeys(), QStringList{"tokens"});
    EXPECT_TRUE(heard.heard.empty());
    for (const QString& name : foreign)
        EXPECT_EQ(contentOf(folder + QLatin1Char('/') + name), "changed by the engine") << name.toStdString();
    EXPECT_FALSE(QFile::exists(stale));
}

TEST_F(CloudFolder, AMissingOrVanishedFolderReadsAsEmptyAndComesBack) {
    QStringList log;
    SystemLogCapture capture([&](const QString& line) { log << line; });
    UbiquitousKeyValueStore store(makeFolderUbiquitousKeyValueStoreBackend(folder, false));
    Announcements heard(&store);
    store.setData("lost", QStringLiteral("tokens"));
    EXPECT_EQ(store.dataForKey(QStringLiteral("tokens")), std::nullopt);
    EXPECT_FALSE(QFileInfo::exists(folder)) << "a configured folder is never created";
    ASSERT_FALSE(log.isEmpty());
    EXPECT_TRUE(log.first().contains(folder)) << log.first().toStdString();

    // The drive is mounted: the folder appears with a value another device wrote.
    ASSERT_TRUE(QDir().mkpath(folder));
    cloudtest::deliverFile(folder, QStringLiteral("tokens"), "on the drive");
    ASSERT_TRUE(heard.waitFor(accountChange, QStringLiteral("tokens")));
    EXPECT_EQ(store.dataForKey(QStringLiteral("tokens")), "on the drive");

    // Unmounted (moved away, as far as the folder's path is concerned), then back.
    const QString away = scratch.path() + QStringLiteral("/away");
    heard.heard.clear();
    ASSERT_TRUE(QDir().rename(folder, away));
    ASSERT_TRUE(heard.waitFor(accountChange, QStringLiteral("tokens")));
    EXPECT_EQ(store.dataForKey(QStringLiteral("tokens")), std::nullopt);
    EXPECT_TRUE(log.last().contains(QLatin1String("moved away"))) << log.last().toStdString();
    heard.heard.clear();
    ASSERT_TRUE(QDir().rename(away, folder));
    ASSERT_TRUE(heard.waitFor(accountChange, QStringLiteral("tokens")));
    EXPECT_EQ(store.dataForKey(QStringLiteral("tokens")), "on the drive");
    store.setData("written again", QStringLiteral("tokens"));
    EXPECT_EQ(contentOf(folder + QStringLiteral("/tokens")), "written again");
}

} // namespace
