// The sync manager in one process, on a real keyring, session bus and folder store: its errors,
// the flows, the whole failure table, the passcode and the echoes of its own announcements.
#include "tests/sync/SyncTestSupport.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"

#include <QFileInfo>

using namespace synctest;
using testsupport::spinEventLoop;
using testsupport::waitUntil;
using Error = iCloudManager::Error;
using namespace std::chrono_literals;
namespace Code = platform::KeychainStatusCode;

namespace {

const QString settingsDarwin = QStringLiteral("iCloudManagerDidChangeSettingsDarwinNotification");
const QString askEachTimeDarwin = QStringLiteral("iCloudManagerDidChangeAskEachTimeDarwinNotification");
const QString couldNot = iCloudManager::couldNotRetrieveTokenRecordsNotification;
const QString recordsChanged = iCloudManager::tokenRecordsDidChangeExternallyNotification;

// A keychain whose calls fail with a chosen status, over items kept in memory.
class FailingKeychain final : public platform::KeychainBackend {
public:
    platform::KeychainStatus failReads = Code::success, failWrites = Code::success;
    platform::KeychainStatus find(const platform::KeychainQuery& q, const platform::KeychainMatch& match,
                                  std::vector<platform::KeychainRecord>* out) override {
        return failReads ? failReads : memory_->find(q, match, out);
    }
    platform::KeychainStatus add(const platform::KeychainRecord& record) override {
        return failWrites ? failWrites : memory_->add(record);
    }
    platform::KeychainStatus update(const platform::KeychainQuery& q,
                                    const platform::KeychainAttributes& a) override {
        return failWrites ? failWrites : memory_->update(q, a);
    }
    platform::KeychainStatus remove(const platform::KeychainQuery& q) override {
        return failWrites ? failWrites : memory_->remove(q);
    }

private:
    std::unique_ptr<platform::KeychainBackend> memory_ = platform::makeMemoryKeychainBackend();
};

std::optional<Error> thrownError(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const iCloudManager::Failure& failure) {
        return failure.error();
    }
    return std::nullopt;
}

class SyncManager : public ::testing::Test {
public: // the failure table's rows reach in
    ManagerStores stores;
    std::unique_ptr<iCloudManager> manager = stores.makeManager();
    ManagerNotifications heard{manager.get()};

    std::optional<QByteArray> tokenData() { return stores.store.dataForKey(QStringLiteral("tokens")); }
    void storeTokenData(const QByteArray& data) { stores.store.setData(data, QStringLiteral("tokens")); }
    QVariant savedPasscode() {
        return stores.makeKeychain()->objectForKey(QStringLiteral("iCloudDecryptionPassword"));
    }
};

// Raw values are persisted and carried by notifications: they must match exactly, both ways.
TEST_F(SyncManager, ErrorsHaveExactRawValuesBridgeToPlatformErrorsAndPersistInTheSuite) {
    const std::vector<std::pair<Error, QString>> cases = {
        {Error::tokenDataInvalid, "TokenDataInvalid"},
        {Error::iCloudNotEnabled, "iCloudNotEnabled"},
        {Error::incorrectPassword, "IncorrectPassword"},
        {Error::keychainAccessDenied, "KeychainAccessDenied"}};
    for (const auto& [error, raw] : cases) {
        EXPECT_EQ(iCloudManagerErrorRawValue(error), raw);
        EXPECT_EQ(platform::Error(iCloudManager::Failure(error)),
                  platform::Error("marlockCompanionCommon.iCloudManager.Error", static_cast<int>(error)));
        stores.suite->setObject(raw, QStringLiteral("iCloudSyncLastError"));
        EXPECT_EQ(manager->lastError(), error);
    }
    for (const QVariant& unknown :
         {QVariant("incorrectPassword"), QVariant("IncorrectPassword "), QVariant(2)}) {
        stores.suite->setObject(unknown, QStringLiteral("iCloudSyncLastError"));
        EXPECT_EQ(manager->lastError(), std::nullopt) << unknown.toString().toStdString();
    }
    manager->clearLastError();
    EXPECT_FALSE(stores.suite->objectForKey(QStringLiteral("iCloudSyncLastError")).isValid());

    const iCloudManager::Failure passed(platform::Error(FXKeychainErrorDomain, -25291));
    EXPECT_EQ(passed.error(), std::nullopt);
    EXPECT_EQ(passed.toPlatformError(), platform::Error(FXKeychainErrorDomain, -25291));
}

TEST_F(SyncManager, EnabledSyncPublishesRecordsThatAnotherManagerReadsBack) {
    const auto records = sampleRecords(3);
    manager->enableiCloudWithPassword(QStringLiteral("correct horse"), true);
    EXPECT_TRUE(manager->iCloudEnabled());
    EXPECT_TRUE(manager->passcodeIsSaved());
    EXPECT_EQ(savedPasscode(), QStringLiteral("correct horse"));
    EXPECT_EQ(manager->passcode(), QStringLiteral("correct horse"));
    EXPECT_EQ(heard.names, QStringList{iCloudManager::didChangeSettingsNotification});

    manager->setTokenRecords(records);
    const QByteArray first = tokenData().value();
    manager->setTokenRecords(records);
    EXPECT_NE(tokenData(), first) << "fresh salts and IV every time";
    EXPECT_EQ(manager->tokenRecords(), std::nullopt) << "writing does not set what was read";
    EXPECT_EQ(manager->decryptTokenDataWithPassword(QStringLiteral("correct horse")), records);
    EXPECT_EQ(manager->decryptTokenDataWithPassword(QStringLiteral("wrong")), std::nullopt);

    // What is stored is a container of a token archive, as any other reader would open it.
    const auto root =
        jr_unarchiveData(RNCryptor::decrypt(tokenData().value(), QStringLiteral("correct horse")), true,
                         {QStringLiteral("OTPToken")});
    ASSERT_TRUE(root && root->toList().size() == 3);

    auto other = stores.makeManager();
    ManagerNotifications otherHeard(other.get());
    other->start();
    EXPECT_EQ(other->tokenRecords(), records);
    EXPECT_EQ(otherHeard.names, QStringList{recordsChanged});

    manager->setTokenRecords({});
    other->refreshTokenRecords();
    EXPECT_EQ(other->tokenRecords(), iCloudManager::TokenRecords{}) << "an empty list, not absent";
}

// Every way reading the records can fail, and what each leaves behind.
TEST_F(SyncManager, FailedReadsAreRecordedAnnouncedAndForgetThePasscode) {
    struct Row {
        const char* situation;
        std::function<void(SyncManager&)> arrange;
        std::optional<Error> expected; // absent: nothing recorded, nothing announced
    };
    const QByteArray goodData = [&] {
        manager->enableiCloudWithPassword(QStringLiteral("right"), true);
        manager->setTokenRecords(sampleRecords(2));
        return tokenData().value();
    }();
    const std::vector<Row> rows = {
        {"no data in the store", [](SyncManager& t) { t.stores.store.removeObjectForKey("tokens"); },
         Error::iCloudNotEnabled},
        {"data under another passcode",
         [](SyncManager& t) { t.storeTokenData(RNCryptor::encrypt("x", QStringLiteral("other"))); },
         Error::incorrectPassword},
        {"data that is no container", [](SyncManager& t) { t.storeTokenData("plain text"); },
         Error::incorrectPassword},
        {"a truncated container",
         [&](SyncManager& t) { t.storeTokenData(goodData.left(goodData.size() - 1)); },
         Error::incorrectPassword},
        {"a container of no archive",
         [](SyncManager& t) {
             t.storeTokenData(RNCryptor::encrypt("not an archive", QStringLiteral("right")));
         },
         Error::incorrectPassword},
        {"the saved passcode is gone",
         [](SyncManager& t) {
             ASSERT_TRUE(t.stores.makeKeychain()->removeObjectForKey("iCloudDecryptionPassword"));
         },
         Error::incorrectPassword},
        {"asked each time, not entered yet",
         [](SyncManager& t) {
             t.stores.suite->setBool(true, "iCloudAskForPasscodeEachTime");
             t.manager->setPasscode(std::nullopt);
         },
         std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.situation);
        manager->enableiCloudWithPassword(QStringLiteral("right"), true);
        storeTokenData(goodData);
        manager->refreshTokenRecords();
        ASSERT_TRUE(manager->tokenRecords().has_value());
        heard.clear();
        manager->setPasscode(QStringLiteral("right")); // a cached passcode, which a failure drops
        heard.clear();
        row.arrange(*this);
        manager->refreshTokenRecords();
        EXPECT_EQ(manager->tokenRecords(), std::nullopt);
        EXPECT_EQ(manager->lastError(), row.expected);
        if (row.expected) {
            EXPECT_EQ(heard.names, QStringList{couldNot});
            EXPECT_EQ(heard.reasons, QStringList{iCloudManagerErrorRawValue(*row.expected)});
            EXPECT_EQ(manager->passcode(), std::nullopt);
        } else {
            EXPECT_TRUE(heard.names.isEmpty()) << heard.names.join(',').toStdString();
        }
        stores.suite->setBool(false, QStringLiteral("iCloudAskForPasscodeEachTime"));
    }

    // Asked each time: a wrong entry is reported and dropped; the right one reads and clears the error.
    manager->enableiCloudWithPassword(QStringLiteral("right"), false);
    storeTokenData(goodData);
    heard.clear();
    manager->setPasscode(QStringLiteral("wrong"));
    EXPECT_EQ(heard.reasons, QStringList{"IncorrectPassword"});
    EXPECT_EQ(manager->passcode(), std::nullopt);
    manager->setPasscode(QStringLiteral("right"));
    EXPECT_EQ(manager->tokenRecords(), sampleRecords(2));
    EXPECT_EQ(manager->lastError(), std::nullopt);
    EXPECT_EQ(heard.names.last(), recordsChanged);
}

TEST_F(SyncManager, KeychainFailuresAreMappedOrPassedThrough) {
    auto* keychain = new FailingKeychain; // owned by the services below
    auto services =
        std::make_shared<platform::KeychainServices>(std::unique_ptr<platform::KeychainBackend>(keychain));
    iCloudManager failingManager(stores.suite,
                                 std::make_unique<FXKeychain>(stores.service, stores.service, 0, services),
                                 &stores.store);
    ManagerNotifications failingHeard(&failingManager);
    failingManager.enableiCloudWithPassword(QStringLiteral("right"), true);
    failingManager.setTokenRecords(sampleRecords(1));

    // Reading: a refusal is the manager's own error; any other failure stays silent.
    keychain->failReads = Code::authFailed;
    failingHeard.clear();
    failingManager.refreshTokenRecords();
    EXPECT_EQ(failingHeard.reasons, QStringList{"KeychainAccessDenied"});
    EXPECT_EQ(thrownError([&] { failingManager.setTokenRecords({}); }), Error::keychainAccessDenied);
    keychain->failReads = Code::notAvailable;
    failingHeard.clear();
    failingManager.clearLastError();
    failingManager.refreshTokenRecords();
    EXPECT_TRUE(failingHeard.names.isEmpty());
    EXPECT_EQ(failingManager.lastError(), std::nullopt);
    platform::Error error;
    EXPECT_FALSE(failingManager.setTokenRecords({}, &error));
    EXPECT_EQ(error, platform::Error(FXKeychainErrorDomain, Code::notAvailable));

    // Writing: the keychain's error comes through unchanged and the settings stay as they were.
    keychain->failReads = Code::success;
    keychain->failWrites = Code::notAvailable;
    failingHeard.clear();
    EXPECT_FALSE(failingManager.enableiCloudWithPassword(QStringLiteral("new"), true, &error));
    EXPECT_EQ(error.code, Code::notAvailable);
    EXPECT_EQ(failingManager.passcode(), QStringLiteral("new")) << "the cache is set before the save";
    EXPECT_FALSE(failingManager.setSavedPasscode(std::nullopt, &error));
    EXPECT_TRUE(failingManager.passcodeIsSaved());
    EXPECT_FALSE(failingManager.disableiCloud(&error));
    EXPECT_FALSE(failingManager.iCloudEnabled()) << "the switch is off before the keychain is asked";
    EXPECT_TRUE(failingHeard.names.isEmpty());
}

TEST_F(SyncManager, WritesRefuseWhatTheyCannotDoAndStoreNothing) {
    EXPECT_EQ(thrownError([&] { manager->setTokenRecords(sampleRecords(1)); }), Error::iCloudNotEnabled);
    EXPECT_EQ(thrownError([&] { manager->changePassword(QStringLiteral("x")); }), Error::iCloudNotEnabled);

    // Asked each time with nothing saved: quietly nothing.
    manager->enableiCloudWithPassword(QStringLiteral("entered"), false);
    heard.clear();
    manager->setTokenRecords(sampleRecords(1));
    EXPECT_EQ(tokenData(), std::nullopt);
    EXPECT_TRUE(heard.names.isEmpty());
    EXPECT_EQ(thrownError([&] { manager->changePassword(QStringLiteral("x")); }), Error::incorrectPassword);

    // Containers grow in 16-byte steps, so 511,986 bytes is the largest that fits; 512,002 is refused.
    manager->setSavedPasscode(QStringLiteral("saved"));
    const auto sizedRecords = [](qsizetype containerSize) {
        const auto archiveSize = [](int secret) {
            QVariantList tokens;
            for (const auto& r : sampleRecords(1, secret))
                tokens.append(
                    QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>(r.toOTPToken())));
            return jr_archivedDataWithRootObject(tokens, true).value().size();
        };
        int secret = 511000;
        while (34 + 16 * (archiveSize(secret) / 16 + 1) + 32 < containerSize)
            secret += 8;
        return sampleRecords(1, secret);
    };
    manager->setTokenRecords(sizedRecords(511986));
    EXPECT_EQ(tokenData().value().size(), 511986);
    const QByteArray kept = tokenData().value();
    EXPECT_EQ(thrownError([&] { manager->setTokenRecords(sizedRecords(512002)); }), Error::tokenDataInvalid);
    EXPECT_EQ(tokenData(), kept);
}

TEST_F(SyncManager, ChangingThePasscodeReKeysTheData) {
    manager->enableiCloudWithPassword(QStringLiteral("old"), true);
    manager->setTokenRecords(sampleRecords(2));
    manager->changePassword(QStringLiteral("new"));
    EXPECT_EQ(savedPasscode(), QStringLiteral("new"));
    EXPECT_EQ(manager->decryptTokenDataWithPassword(QStringLiteral("new")), sampleRecords(2));
    EXPECT_EQ(manager->decryptTokenDataWithPassword(QStringLiteral("old")), std::nullopt);

    // The saved passcode must open the data before anything is re-keyed.
    storeTokenData(RNCryptor::encrypt("x", QStringLiteral("someone else's")));
    EXPECT_EQ(thrownError([&] { manager->changePassword(QStringLiteral("newer")); }),
              Error::incorrectPassword);
    EXPECT_EQ(savedPasscode(), QStringLiteral("new"));
}

TEST_F(SyncManager, DisablingForgetsEverythingButTheDataAndResetRemovesItToo) {
    manager->enableiCloudWithPassword(QStringLiteral("pw"), true);
    manager->setTokenRecords(sampleRecords(1));
    manager->refreshTokenRecords();
    stores.suite->setObject(QStringLiteral("IncorrectPassword"), QStringLiteral("iCloudSyncLastError"));
    heard.clear();
    manager->disableiCloud();
    EXPECT_FALSE(manager->iCloudEnabled());
    EXPECT_TRUE(manager->passcodeIsSaved()) << "ask-each-time is switched off too";
    EXPECT_FALSE(savedPasscode().isValid());
    EXPECT_EQ(manager->passcode(), std::nullopt);
    EXPECT_EQ(manager->tokenRecords(), std::nullopt);
    EXPECT_EQ(manager->lastError(), std::nullopt);
    EXPECT_TRUE(manager->iCloudDataPresent());
    EXPECT_EQ(heard.names, QStringList{iCloudManager::didChangeSettingsNotification});
    manager->refreshTokenRecords();
    EXPECT_EQ(heard.names.size(), 1) << "nothing is read while sync is off";

    manager->enableiCloudWithPassword(QStringLiteral("pw"), false);
    EXPECT_TRUE(manager->tokenRecords().has_value()) << "enabling reads what the passcode opens";
    EXPECT_FALSE(manager->passcodeIsSaved());
    manager->resetiCloudData();
    EXPECT_FALSE(manager->iCloudDataPresent());
}

// Own posts come back and are swallowed one for one; the other process's are applied.
TEST_F(SyncManager, OwnEchoesAreSwallowedAndTheOtherProcessesChangesApplied) {
    spinEventLoop(300ms); // posts of earlier tests in this process arrive before counting starts
    auto darwin = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    int arrivals = 0;
    auto token = darwin->addObserverForName(settingsDarwin, nullptr, [&](const auto&) { ++arrivals; });
    manager->start();
    manager->start(); // registers nothing more: one arrival is handled once below

    manager->enableiCloudWithPassword(QStringLiteral("pw"), true);
    manager->setTokenRecords(sampleRecords(1));
    darwin->postNotificationName(settingsDarwin); // the other process, after our two posts
    ASSERT_TRUE(waitUntil([&] { return arrivals == 3; }));
    spinEventLoop(100ms);
    EXPECT_EQ(heard.names.count(iCloudManager::didChangeSettingsExternallyNotification), 1);
    EXPECT_EQ(manager->tokenRecords(), sampleRecords(1)) << "the other process's change is read";
    EXPECT_EQ(manager->passcode(), std::nullopt) << "and the cached passcode dropped";

    // The other process switched sync off: the records go. Then it switched to ask-each-time.
    heard.clear();
    stores.suite->setBool(false, QStringLiteral("iCloudEnabled"));
    darwin->postNotificationName(settingsDarwin);
    ASSERT_TRUE(waitUntil(
        [&] { return heard.names.contains(iCloudManager::didChangeSettingsExternallyNotification); }));
    EXPECT_EQ(manager->tokenRecords(), std::nullopt);
    manager->setPasscode(QStringLiteral("typed"));
    EXPECT_EQ(heard.names.size(), 1) << "a passcode set while sync is off reads nothing";
    darwin->postNotificationName(askEachTimeDarwin);
    ASSERT_TRUE(waitUntil(
        [&] { return heard.names.contains(iCloudManager::didChangeAskEachTimeExternallyNotification); }));
    EXPECT_EQ(manager->passcode(), std::nullopt);

    // Our own ask-each-time change is told to others only, and its echo swallowed.
    int askArrivals = 0;
    auto askToken =
        darwin->addObserverForName(askEachTimeDarwin, nullptr, [&](const auto&) { ++askArrivals; });
    heard.clear();
    manager->setSavedPasscode(QStringLiteral("x"));
    ASSERT_TRUE(waitUntil([&] { return askArrivals == 1; }));
    spinEventLoop(100ms);
    EXPECT_TRUE(heard.names.isEmpty()) << heard.names.join(',').toStdString();
    EXPECT_EQ(savedPasscode(), QStringLiteral("x"));
    darwin->removeObserver(token.get());
    darwin->removeObserver(askToken.get());
}

TEST_F(SyncManager, ThePasscodeIsSavedWithAnAccessObjectForBothPrograms) {
    EXPECT_TRUE(manager->passcodeIsSaved()) << "a fresh install counts as saved";
    manager->setSavedPasscode(std::nullopt);
    EXPECT_FALSE(manager->passcodeIsSaved());

    manager->setSavedPasscode(QStringLiteral("kept"));
    EXPECT_TRUE(manager->passcodeIsSaved());
    const auto access = manager->secAccess().value();
    const QString self = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    EXPECT_EQ(access.trustedApplications,
              (QStringList{self, QFileInfo(self).absolutePath() + QStringLiteral("/marlock-today")}));
    EXPECT_FALSE(access.label.isEmpty());
    std::unique_ptr<platform::KeychainItem> item;
    ASSERT_EQ(
        platform::KeychainServices::shared()->copyMatchingItem(
            {platform::KeychainClass::genericPassword, stores.service, "iCloudDecryptionPassword"}, &item),
        Code::success);
    EXPECT_EQ(item->access, access);

    // A saved value that is no string is no passcode: nothing can be written with it.
    manager->enableiCloudWithPassword(QStringLiteral("typed"), true);
    ASSERT_TRUE(stores.makeKeychain()->setObject(qint64(42), QStringLiteral("iCloudDecryptionPassword")));
    manager->setTokenRecords(sampleRecords(1));
    EXPECT_EQ(tokenData(), std::nullopt);
}

using SyncManagerDeathTest = SyncManager;

TEST_F(SyncManagerDeathTest, ImpossibleStatesStopTheProcess) {
    EXPECT_DEATH(
        {
            qputenv("MARLOCK_APPLICATION_GROUP", "no/suite");
            iCloudManager unopenable;
        },
        "Could not open the user defaults suite \"no/suite\"");

    manager->enableiCloudWithPassword(QStringLiteral("pw"), true);
    const QByteArray notTokens = jr_archivedDataWithRootObject(QStringLiteral("a string"), true).value();
    storeTokenData(RNCryptor::encrypt(notTokens, QStringLiteral("pw")));
    EXPECT_DEATH((void)manager->decryptTokenDataWithPassword(QStringLiteral("pw")), "to 'NSArray<OTPToken>'");

    ASSERT_TRUE(stores.makeKeychain()->setObject(QString(""), QStringLiteral("iCloudDecryptionPassword")));
    EXPECT_DEATH(manager->setTokenRecords(sampleRecords(1)),
                 "An empty passcode reached the token encryption");
}

} // namespace
