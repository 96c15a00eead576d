// FXKeychain over both backends (the throw-away Secret Service keyring and memory), plus the
// failure paths and class-wide deletions, which run on memory only: a class-wide delete in the
// shared test keyring would remove other tests' items.
#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/platform/Identity.h"
#include "marlockCompanionCommon/platform/KeychainServices.h"
#include "marlockCompanionCommon/platform/PropertyList.h"
#include "marlockCompanionCommon/platform/SystemLog.h"

#include <QDateTime>
#include <QSize>
#include <QUuid>

#include <gtest/gtest.h>

using namespace platform;
namespace Code = platform::KeychainStatusCode;

namespace {

struct MemoryBackend {
    static std::unique_ptr<KeychainBackend> make() { return makeMemoryKeychainBackend(); }
};
struct SecretServiceBackend {
    static std::unique_ptr<KeychainBackend> make() { return makeSecretServiceKeychainBackend(); }
};

template <typename Backend> class FXKeychainStore : public ::testing::Test {
protected:
    const QString service =
        QStringLiteral("fxkeychain-test-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    std::shared_ptr<KeychainServices> services = std::make_shared<KeychainServices>(Backend::make());
    FXKeychain keychain{service, QStringLiteral("group.ignored"), 0, services};
    QStringList log;
    SystemLogCapture capture{[this](const QString& line) { log << line; }};

    KeychainQuery itemQuery(const QString& key) const {
        return {KeychainClass::genericPassword, service, key};
    }
    // Puts bytes into the keychain as another program might have.
    void storeRaw(const QString& key, const QByteArray& bytes) {
        ASSERT_EQ(services->itemAdd(itemQuery(key), {bytes, std::nullopt, std::nullopt}), Code::success);
    }
    void TearDown() override {
        (void)services->itemDelete(KeychainQuery{KeychainClass::genericPassword, service, std::nullopt});
    }
};

using Backends = ::testing::Types<MemoryBackend, SecretServiceBackend>;
TYPED_TEST_SUITE(FXKeychainStore, Backends);

TYPED_TEST(FXKeychainStore, StringsAreStoredAsTheirUtf8Bytes) {
    ASSERT_TRUE(this->keychain.setObject(QStringLiteral("hello"), "greeting"));
    EXPECT_EQ(this->keychain.dataForKey("greeting"), QByteArray("hello"));
    EXPECT_EQ(this->keychain.objectForKey("greeting"), "hello");
    EXPECT_EQ(this->keychain.objectForKeyedSubscript("greeting"), "hello");
    EXPECT_TRUE(this->log.contains("Data size: 5 bytes")) << this->log.join('\n').toStdString();

    ASSERT_TRUE(this->keychain.setObject(QString(), "empty"));
    EXPECT_EQ(this->keychain.dataForKey("empty"), QByteArray(""));
    EXPECT_EQ(this->keychain.objectForKey("empty"), QString());
}

TYPED_TEST(FXKeychainStore, StringsThatLookLikePropertyListsStayStrings) {
    ASSERT_TRUE(this->keychain.setObject(QStringLiteral("bplist, but not one"), "fake"));
    EXPECT_EQ(this->keychain.dataForKey("fake"), QByteArray("bplist, but not one"));
    EXPECT_EQ(this->keychain.objectForKey("fake"), "bplist, but not one");

    // The bytes of a binary property list of 0 are all ASCII, so they make a valid string; stored
    // as text it would read back as the number. It goes the property-list way instead, where its
    // NUL characters (every binary property list has some) have no form: nothing is stored and the
    // error says why.
    const QByteArray plistBytes = PropertyList::write(qint64(0), PropertyList::Format::Binary).value();
    const QString lookalike = QString::fromUtf8(plistBytes);
    ASSERT_EQ(lookalike.toUtf8(), plistBytes);
    ASSERT_TRUE(this->keychain.setObject(QStringLiteral("before"), "real"));
    Error error;
    EXPECT_TRUE(this->keychain.setObject(lookalike, "real", &error));
    EXPECT_EQ(error.domain, PropertyList::errorDomain);
    EXPECT_EQ(error.code, PropertyList::writeInvalidError);
    EXPECT_FALSE(this->keychain.dataForKey("real").has_value());
}

TYPED_TEST(FXKeychainStore, OtherValuesAreStoredAsBinaryPropertyLists) {
    ASSERT_TRUE(this->keychain.setObject(42, "number"));
    EXPECT_TRUE(this->keychain.dataForKey("number").value().startsWith("bplist"));
    EXPECT_EQ(this->keychain.objectForKey("number").toLongLong(), 42);

    const QDateTime when = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    const QVariantMap value{
        {"data", QByteArray("\x00\xff", 2)}, {"flag", true}, {"when", when}, {"pi", 3.25}};
    ASSERT_TRUE(this->keychain.setObject(value, "map"));
    EXPECT_EQ(this->keychain.objectForKey("map").toMap(), value);

    // Nulls have no property-list form: they are left out.
    ASSERT_TRUE(this->keychain.setObject(QVariantList{1, QVariant::fromValue(nullptr), "two"}, "list"));
    EXPECT_EQ(this->keychain.objectForKey("list").toList(), QVariantList({1, "two"}));
}

TYPED_TEST(FXKeychainStore, AMissingKeyIsReportedButNotLogged) {
    Error error;
    EXPECT_FALSE(this->keychain.objectForKey("missing", &error).isValid());
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, Code::itemNotFound));
    EXPECT_FALSE(this->keychain.dataForKey("missing").has_value());
    EXPECT_TRUE(this->log.isEmpty()) << this->log.join('\n').toStdString();
}

TYPED_TEST(FXKeychainStore, StoringANewKeyLeavesNotFoundInTheErrorYetSucceeds) {
    Error error;
    EXPECT_TRUE(this->keychain.setObject(QStringLiteral("v1"), "key", &error));
    EXPECT_EQ(error.code, Code::itemNotFound);
    EXPECT_EQ(error.domain, FXKeychainErrorDomain);

    // Updating an existing key writes no error.
    Error untouched(QStringLiteral("marker"), 1);
    EXPECT_TRUE(this->keychain.setObject(QStringLiteral("v2"), "key", &untouched));
    EXPECT_EQ(untouched, Error(QStringLiteral("marker"), 1));
    EXPECT_EQ(this->keychain.objectForKey("key"), "v2");
}

TYPED_TEST(FXKeychainStore, RemovingAndUnencodableObjectsDeleteTheItem) {
    EXPECT_TRUE(this->keychain.removeObjectForKey("never-stored"));
    EXPECT_TRUE(this->log.isEmpty());

    ASSERT_TRUE(this->keychain.setObject(QStringLiteral("value"), "key"));
    EXPECT_TRUE(this->keychain.removeObjectForKey("key"));
    EXPECT_FALSE(this->keychain.dataForKey("key").has_value());

    // An object without a property-list form removes what was stored and says why.
    ASSERT_TRUE(this->keychain.setObject(QStringLiteral("previous"), "key"));
    Error error;
    EXPECT_TRUE(this->keychain.setObject(QVariant::fromValue(QSize(1, 2)), "key", &error));
    EXPECT_EQ(error.domain, PropertyList::errorDomain);
    EXPECT_FALSE(this->keychain.dataForKey("key").has_value());

    this->keychain.setObjectForKeyedSubscript(QStringLiteral("again"), "key");
    EXPECT_EQ(this->keychain.objectForKeyedSubscript("key"), "again");
    this->keychain.setObjectForKeyedSubscript(QVariant(), "key");
    EXPECT_FALSE(this->keychain.objectForKeyedSubscript("key").isValid());
}

TYPED_TEST(FXKeychainStore, ItemsGetTheAccessibilityAndAccessObjectOfTheirStore) {
    ASSERT_TRUE(this->keychain.setObject(QStringLiteral("a"), "key"));
    std::unique_ptr<KeychainItem> item;
    ASSERT_EQ(this->services->copyMatchingItem(this->itemQuery("key"), &item), Code::success);
    EXPECT_EQ(item->accessible, KeychainAccessible::whenUnlocked);
    EXPECT_EQ(item->service, this->service);

    this->keychain.setAccessibility(4);
    const KeychainAccess access{QStringLiteral("Marlock"), {QStringLiteral("/usr/bin/marlock")}};
    ASSERT_TRUE(this->keychain.setObject(QStringLiteral("b"), "key", &access, nullptr));
    ASSERT_EQ(this->services->copyMatchingItem(this->itemQuery("key"), &item), Code::success);
    EXPECT_EQ(item->accessible, KeychainAccessible::afterFirstUnlockThisDeviceOnly);
    EXPECT_EQ(item->access, access);

    this->keychain.setAccessibility(6);
    EXPECT_THROW((void)this->keychain.setObject(QStringLiteral("c"), "key"), std::out_of_range);
}

TYPED_TEST(FXKeychainStore, StoredBytesAreDecodedBySniffingButArchivesAreNeverTrusted) {
    this->storeRaw("short", "bpl");
    EXPECT_EQ(this->keychain.objectForKey("short"), "bpl");

    // A keyed archive (binary, not UTF-8) is neither unarchived nor text.
    const QVariantMap archive{{"$archiver", "NSKeyedArchiver"},
                              {"$objects", QVariantList{"$null"}},
                              {"$top", QVariantMap{}},
                              {"$version", 100000},
                              {"blob", QByteArray("\xff\xfe", 2)}};
    this->storeRaw("archive", PropertyList::write(archive, PropertyList::Format::Binary).value());
    Error error;
    EXPECT_FALSE(this->keychain.objectForKey("archive", &error).isValid());
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, FXKeychain::undecodableDataError));
    EXPECT_TRUE(this->log.contains("FXKeychain failed to decode data for key 'archive', error: (null)"))
        << this->log.join('\n').toStdString();

    // Damaged property-list bytes that are not UTF-8 either: the parse error is passed on.
    this->storeRaw("damaged", QByteArray("bplist00\xff\xff", 10));
    EXPECT_FALSE(this->keychain.objectForKey("damaged", &error).isValid());
    EXPECT_EQ(error.domain, PropertyList::errorDomain);
    EXPECT_EQ(error.code, PropertyList::readCorruptError);
    EXPECT_TRUE(this->log.last().startsWith("FXKeychain failed to decode data for key 'damaged', error: "
                                            "Error Domain=NSCocoaErrorDomain Code=3840"))
        << this->log.last().toStdString();
}

TYPED_TEST(FXKeychainStore, NewKeychainItemForKeyFindsTheItemAndLogsItsContent) {
    ASSERT_TRUE(this->keychain.setObject(QStringLiteral("content"), "key"));
    this->log.clear();
    const std::unique_ptr<KeychainItem> item = this->keychain.newKeychainItemForKey("key");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->account, "key");
    EXPECT_EQ(this->log, QStringList{"content"});

    this->log.clear();
    EXPECT_FALSE(this->keychain.newKeychainItemForKey("missing"));
    EXPECT_EQ(this->log, QStringList{"(null)"});

    // Names are passed with their character count as length: a non-ASCII account is cut short
    // and so not found, as the older lookup always behaved.
    ASSERT_TRUE(this->keychain.setObject(QStringLiteral("x"), QStringLiteral("café")));
    EXPECT_FALSE(this->keychain.newKeychainItemForKey(QStringLiteral("café")));
}

// Memory only from here on.

// A backend whose calls can be made to fail, counting the deletions asked of it.
class FailingBackend final : public KeychainBackend {
public:
    std::unique_ptr<KeychainBackend> inner = makeMemoryKeychainBackend();
    KeychainStatus findStatus = Code::success, addStatus = Code::success, updateStatus = Code::success,
                   removeStatus = Code::success;
    int removals = 0;

    KeychainStatus find(const KeychainQuery& q, bool withData, std::vector<KeychainRecord>* out) override {
        return findStatus ? findStatus : inner->find(q, withData, out);
    }
    KeychainStatus add(const KeychainRecord& record) override {
        return addStatus ? addStatus : inner->add(record);
    }
    KeychainStatus update(const KeychainQuery& q, const KeychainAttributes& changes) override {
        return updateStatus ? updateStatus : inner->update(q, changes);
    }
    KeychainStatus remove(const KeychainQuery& q) override {
        ++removals;
        return removeStatus ? removeStatus : inner->remove(q);
    }
};

class FXKeychainFailures : public ::testing::Test {
protected:
    FailingBackend* backend = new FailingBackend;
    std::shared_ptr<KeychainServices> services =
        std::make_shared<KeychainServices>(std::unique_ptr<KeychainBackend>(backend));
    FXKeychain keychain{QStringLiteral("svc"), std::nullopt, 0, services};
    QStringList log;
    SystemLogCapture capture{[this](const QString& line) { log << line; }};
};

TEST_F(FXKeychainFailures, KeychainFailuresAreReportedAndLogged) {
    ASSERT_TRUE(keychain.setObject(QStringLiteral("value"), "key"));
    log.clear();

    backend->findStatus = Code::authFailed;
    Error error;
    EXPECT_FALSE(keychain.objectForKey("key", &error).isValid());
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, Code::authFailed));
    EXPECT_EQ(log, QStringList{"FXKeychain failed to retrieve data for key 'key', error: -25293"});

    backend->findStatus = Code::success;
    backend->updateStatus = Code::authFailed;
    log.clear();
    EXPECT_FALSE(keychain.setObject(QStringLiteral("new"), "key", &error));
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, Code::authFailed));
    EXPECT_EQ(log, QStringList({"Data size: 3 bytes",
                                "FXKeychain failed to store data for key 'key', error: -25293"}));

    backend->addStatus = Code::notAvailable;
    EXPECT_FALSE(keychain.setObject(QStringLiteral("new"), "other", &error));
    EXPECT_EQ(error.code, Code::notAvailable);

    backend->removeStatus = Code::authFailed;
    log.clear();
    EXPECT_FALSE(keychain.removeObjectForKey("key", &error));
    EXPECT_EQ(error.code, Code::authFailed);
    EXPECT_EQ(log, QStringList{"FXKeychain failed to delete data for key 'key', error: -25293"});
}

TEST_F(FXKeychainFailures, DeleteAllKeysForSecClassReachesEveryServiceOfThatClass) {
    ASSERT_EQ(
        services->itemAdd({KeychainClass::genericPassword, QStringLiteral("a"), QStringLiteral("1")}, {}), 0);
    ASSERT_EQ(
        services->itemAdd({KeychainClass::genericPassword, QStringLiteral("b"), QStringLiteral("2")}, {}), 0);
    ASSERT_EQ(services->itemAdd({KeychainClass::key, QStringLiteral("a"), QStringLiteral("3")}, {}), 0);

    EXPECT_TRUE(keychain.deleteAllKeysForSecClass(KeychainClass::genericPassword));
    std::unique_ptr<KeychainItem> item;
    EXPECT_EQ(services->copyMatchingItem({KeychainClass::genericPassword, std::nullopt, std::nullopt}, &item),
              Code::itemNotFound);
    EXPECT_EQ(services->copyMatchingItem({KeychainClass::key, std::nullopt, std::nullopt}, &item),
              Code::success);
    // Nothing left to delete is still success.
    EXPECT_TRUE(keychain.deleteAllKeysForSecClass(KeychainClass::genericPassword));
    EXPECT_TRUE(log.isEmpty());

    backend->removeStatus = Code::authFailed;
    Error error;
    EXPECT_FALSE(keychain.deleteAllKeysForSecClass(KeychainClass::key, &error));
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, Code::authFailed));
    EXPECT_EQ(log, QStringList{"Error deleting keychain data (-25293)"});
}

TEST_F(FXKeychainFailures, ResetKeychainClearsEveryClassAndOnlyReportsIntoAnOutParameter) {
    for (const QString& cls : {KeychainClass::genericPassword, KeychainClass::internetPassword,
                               KeychainClass::certificate, KeychainClass::key, KeychainClass::identity})
        ASSERT_EQ(services->itemAdd({cls, QStringLiteral("s"), QStringLiteral("a")}, {}), Code::success);
    Error error;
    EXPECT_TRUE(keychain.resetKeychain(&error));
    EXPECT_EQ(backend->removals, 5);
    for (const QString& cls : {KeychainClass::genericPassword, KeychainClass::identity})
        EXPECT_EQ(services->itemDelete(KeychainQuery{cls, std::nullopt, std::nullopt}), Code::itemNotFound);

    backend->removeStatus = Code::authFailed;
    backend->removals = 0;
    EXPECT_TRUE(keychain.resetKeychain());
    EXPECT_EQ(backend->removals, 1) << "stops after the first failure";
    EXPECT_FALSE(keychain.resetKeychain(&error));
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, Code::authFailed));
}

TEST(FXKeychain, TheDefaultKeychainIsOneStoreForTheBundle) {
    auto memory = std::make_shared<KeychainServices>(makeMemoryKeychainBackend());
    KeychainServices::setShared(memory);
    FXKeychain& keychain = FXKeychain::defaultKeychain();
    EXPECT_EQ(&keychain, &FXKeychain::defaultKeychain());
    EXPECT_EQ(keychain.service(), Identity::bundleIdentifier());
    EXPECT_FALSE(keychain.accessGroup());
    EXPECT_EQ(keychain.accessibility(), 0u);

    ASSERT_TRUE(keychain.setObject(QStringLiteral("pass"), "iCloudDecryptionPassword"));
    QByteArray data;
    EXPECT_EQ(memory->copyMatchingData({KeychainClass::genericPassword, Identity::bundleIdentifier(),
                                        QStringLiteral("iCloudDecryptionPassword")},
                                       &data),
              Code::success);
    EXPECT_EQ(data, "pass");
    KeychainServices::setShared(nullptr);
}

TEST(FXKeychain, AStoreWithoutServiceMatchesAnyService) {
    auto services = std::make_shared<KeychainServices>(makeMemoryKeychainBackend());
    ASSERT_EQ(
        services->itemAdd({KeychainClass::genericPassword, QStringLiteral("elsewhere"), QStringLiteral("k")},
                          {"found", std::nullopt, std::nullopt}),
        Code::success);
    FXKeychain unscoped(std::nullopt, std::nullopt, 0, services);
    EXPECT_EQ(unscoped.objectForKey("k"), "found");
    FXKeychain empty(QString(), std::nullopt, 0, services);
    EXPECT_EQ(empty.objectForKey("k"), "found");
    FXKeychain scoped(QStringLiteral("mine"), std::nullopt, 0, services);
    EXPECT_FALSE(scoped.objectForKey("k").isValid());
}

} // namespace
