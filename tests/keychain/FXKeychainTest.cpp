// FXKeychain over both backends (the throw-away Secret Service keyring and memory), plus the
// failure paths and class-wide deletions, which run on memory only: a class-wide delete in the
// shared test keyring would remove other tests' items.
#include "tests/platform/keychain/KeychainTestSupport.h"

#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "marlockCompanionCommon/platform/storage/PropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QProcess>
#include <QSize>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <limits>

using namespace platform;
using namespace keychaintest;
namespace Code = platform::KeychainStatusCode;

namespace {

// Equal values, also where QVariant's own comparison converts (quint64 against a negative qint64).
bool equalValues(const QVariant& a, const QVariant& b) {
    return a.metaType() == b.metaType() && a == b;
}

void writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class FXKeychainStore : public ::testing::TestWithParam<Backend>, public KeychainFixture {
protected:
    FXKeychainStore()
        : KeychainFixture(GetParam().make()) {}
    FXKeychain keychain{service, QStringLiteral("group.ignored"), 0, services};
    QStringList log;
    SystemLogCapture capture{[this](const QString& line) { log << line; }};
    std::string logged() const { return log.join('\n').toStdString(); }
};
INSTANTIATE_TEST_SUITE_P(, FXKeychainStore, backends, backendName);

TEST_P(FXKeychainStore, StringsAreStoredAsTheirUtf8Bytes) {
    for (const QString& text : {QStringLiteral("hello"), QString(), QStringLiteral("bplist, but not one")}) {
        SCOPED_TRACE(text.toStdString());
        ASSERT_TRUE(keychain.setObject(text, "key"));
        EXPECT_EQ(keychain.dataForKey("key"), text.toUtf8());
        EXPECT_EQ(keychain.objectForKey("key"), text);
        EXPECT_EQ(keychain.objectForKeyedSubscript("key"), text);
    }
    EXPECT_TRUE(log.contains("Data size: 5 bytes")) << logged();

    // A leading U+FEFF is text, not a byte-order mark to drop.
    ASSERT_TRUE(keychain.setObject(QStringLiteral("\uFEFFbom"), "key"));
    EXPECT_EQ(keychain.dataForKey("key"), QByteArray("\xEF\xBB\xBF"
                                                     "bom"));
    EXPECT_EQ(keychain.objectForKey("key"), QStringLiteral("\uFEFFbom"));

    // The bytes of a binary property list of 0 are all ASCII, so they make a valid string; stored
    // as text it would read back as the number. It is stored as a property list holding the
    // string (NUL characters and all) and reads back as the string.
    const QByteArray plistBytes = PropertyList::write(qint64(0), PropertyList::Format::Binary).value();
    const QString lookalike = QString::fromUtf8(plistBytes);
    ASSERT_EQ(lookalike.toUtf8(), plistBytes);
    ASSERT_TRUE(keychain.setObject(lookalike, "key"));
    EXPECT_NE(keychain.dataForKey("key"), plistBytes);
    EXPECT_EQ(keychain.objectForKey("key"), lookalike);
}

TEST_P(FXKeychainStore, OtherValuesAreStoredAsBinaryPropertyLists) {
    ASSERT_TRUE(keychain.setObject(42, "number"));
    EXPECT_TRUE(keychain.dataForKey("number").value().startsWith("bplist"));
    EXPECT_EQ(keychain.objectForKey("number").toLongLong(), 42);

    const QDateTime when = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    const QVariantMap value{
        {"data", QByteArray("\x00\xff", 2)}, {"flag", true}, {"when", when}, {"pi", 3.25}};
    ASSERT_TRUE(keychain.setObject(value, "map"));
    EXPECT_EQ(keychain.objectForKey("map").toMap(), value);

    // Nulls have no property-list form: they are left out.
    ASSERT_TRUE(keychain.setObject(QVariantList{1, QVariant::fromValue(nullptr), "two"}, "list"));
    EXPECT_EQ(keychain.objectForKey("list").toList(), QVariantList({1, "two"}));
}

TEST_P(FXKeychainStore, AMissingKeyIsReportedButNotLoggedAndStoringItLeavesThatReport) {
    Error error;
    EXPECT_FALSE(keychain.objectForKey("key", &error).isValid());
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, Code::itemNotFound));
    EXPECT_FALSE(keychain.dataForKey("key").has_value());
    EXPECT_TRUE(log.isEmpty()) << logged();

    error = Error();
    EXPECT_TRUE(keychain.setObject(QStringLiteral("v1"), "key", &error));
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, Code::itemNotFound));

    // Updating an existing key writes no error.
    Error untouched(QStringLiteral("marker"), 1);
    EXPECT_TRUE(keychain.setObject(QStringLiteral("v2"), "key", &untouched));
    EXPECT_EQ(untouched, Error(QStringLiteral("marker"), 1));
    EXPECT_EQ(keychain.objectForKey("key"), "v2");
}

// Values libplist could neither write nor read back whole, stored here and read by Python's
// plistlib, and written by plistlib and read here: each side sees the same value.
TEST_P(FXKeychainStore, PropertyListValuesRoundTripExactlyAndAgreeWithPlistlib) {
    const QString nul = QStringLiteral("a") + QChar(0) + QStringLiteral("b");
    const QString wideNul = QStringLiteral("é") + QChar(0) + QStringLiteral("中");
    const struct {
        const char* key;
        QVariant value;
        const char* python;
    } cases[] = {
        {"nulInList", QVariantList{nul}, R"(['a\x00b'])"},
        {"nulInMap", QVariantMap{{nul, wideNul}}, R"({'a\x00b': '\xe9\x00\u4e2d'})"},
        {"bomInList", QVariantList{QStringLiteral("\uFEFFabc")}, R"(['\ufeffabc'])"},
        {"unsigned", QVariant::fromValue(std::numeric_limits<quint64>::max()), "(1 << 64) - 1"},
        {"dates",
         QVariantList{QDateTime(QDate(2100, 1, 1), QTime(0, 0), QTimeZone::utc()),
                      QDateTime(QDate(1, 1, 1), QTime(0, 0, 0, 500), QTimeZone::utc())},
         "[datetime.datetime(2100, 1, 1), datetime.datetime(1, 1, 1, 0, 0, 0, 500000)]"},
    };
    QTemporaryDir dir;
    QString expressions;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        ASSERT_TRUE(keychain.setObject(c.value, c.key));
        EXPECT_TRUE(equalValues(keychain.objectForKey(c.key), c.value));
        writeFile(dir.filePath(QStringLiteral("%1.ours").arg(c.key)), keychain.dataForKey(c.key).value());
        expressions += QStringLiteral("    '%1': %2,\n").arg(c.key, c.python);
    }
    const QString script = QStringLiteral(R"(
import datetime, os, plistlib, sys
cases = {
%1}
for key, want in cases.items():
    path = os.path.join(sys.argv[1], key)
    with open(path + '.ours', 'rb') as f:
        got = plistlib.loads(f.read())
    print(key, 'ok' if got == want else repr(got))
    with open(path + '.theirs', 'wb') as f:
        f.write(plistlib.dumps(want, fmt=plistlib.FMT_BINARY))
)")
                               .arg(expressions);
    QProcess python;
    python.start(QStringLiteral("python3"), {QStringLiteral("-c"), script, dir.path()});
    ASSERT_TRUE(python.waitForFinished(60000));
    ASSERT_EQ(python.exitCode(), 0) << python.readAllStandardError().toStdString();
    const QStringList verdicts =
        QString::fromUtf8(python.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        EXPECT_TRUE(verdicts.contains(QStringLiteral("%1 ok").arg(c.key)))
            << verdicts.join('\n').toStdString();
        const QString theirs = QStringLiteral("%1.theirs").arg(c.key);
        ASSERT_EQ(add(query(theirs), readFile(dir.filePath(theirs))), Code::success);
        EXPECT_TRUE(equalValues(keychain.objectForKey(theirs), c.value));
    }
}

TEST_P(FXKeychainStore, OnlyObjectsWithoutAPropertyListFormRemoveTheStoredValue) {
    EXPECT_TRUE(keychain.removeObjectForKey("never-stored"));
    EXPECT_TRUE(log.isEmpty());

    ASSERT_TRUE(keychain.setObject(QStringLiteral("value"), "key"));
    EXPECT_TRUE(keychain.removeObjectForKey("key"));
    EXPECT_FALSE(keychain.dataForKey("key").has_value());

    // An object without a property-list form removes what was stored and says why.
    ASSERT_TRUE(keychain.setObject(QStringLiteral("previous"), "key"));
    Error error;
    EXPECT_TRUE(keychain.setObject(QVariant::fromValue(QSize(1, 2)), "key", &error));
    EXPECT_EQ(error.domain, PropertyList::errorDomain);
    EXPECT_FALSE(keychain.dataForKey("key").has_value());

    // A property-list value beyond what can be written fails and leaves the stored value alone.
    ASSERT_TRUE(keychain.setObject(QStringLiteral("kept"), "key"));
    QVariant deep = QVariantList{};
    for (int i = 0; i < 300; ++i)
        deep = QVariantList{deep};
    error = Error();
    EXPECT_FALSE(keychain.setObject(deep, "key", &error));
    EXPECT_EQ(error.code, PropertyList::writeInvalidError);
    EXPECT_EQ(keychain.objectForKey("key"), "kept");

    keychain.setObjectForKeyedSubscript(QStringLiteral("again"), "key");
    EXPECT_EQ(keychain.objectForKeyedSubscript("key"), "again");
    keychain.setObjectForKeyedSubscript(QVariant(), "key");
    EXPECT_FALSE(keychain.objectForKeyedSubscript("key").isValid());
}

TEST_P(FXKeychainStore, ItemsGetTheAccessibilityAndAccessObjectOfTheirStore) {
    ASSERT_TRUE(keychain.setObject(QStringLiteral("a"), "key"));
    EXPECT_EQ(item(query("key")), (KeychainItem{KeychainClass::genericPassword, service, "key",
                                                KeychainAccessible::whenUnlocked, std::nullopt}));

    keychain.setAccessibility(4);
    const KeychainAccess access{QStringLiteral("Marlock"), {QStringLiteral("/usr/bin/marlock")}};
    ASSERT_TRUE(keychain.setObject(QStringLiteral("b"), "key", &access, nullptr));
    EXPECT_EQ(item(query("key")), (KeychainItem{KeychainClass::genericPassword, service, "key",
                                                KeychainAccessible::afterFirstUnlockThisDeviceOnly, access}));

    keychain.setAccessibility(6);
    EXPECT_THROW((void)keychain.setObject(QStringLiteral("c"), "key"), std::out_of_range);
}

TEST_P(FXKeychainStore, StoredBytesAreDecodedBySniffingButArchivesAreNeverTrusted) {
    ASSERT_EQ(add(query("short"), "bpl"), Code::success);
    EXPECT_EQ(keychain.objectForKey("short"), "bpl");

    // A keyed archive (binary, not UTF-8) is neither unarchived nor text.
    const QVariantMap archive{{"$archiver", "NSKeyedArchiver"},
                              {"$objects", QVariantList{"$null"}},
                              {"$top", QVariantMap{}},
                              {"$version", 100000},
                              {"blob", QByteArray("\xff\xfe", 2)}};
    ASSERT_EQ(add(query("archive"), PropertyList::write(archive, PropertyList::Format::Binary).value()),
              Code::success);
    Error error;
    EXPECT_FALSE(keychain.objectForKey("archive", &error).isValid());
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, FXKeychain::undecodableDataError));
    EXPECT_TRUE(log.contains("FXKeychain failed to decode data for key 'archive', error: (null)"))
        << logged();

    // Damaged property-list bytes that are not UTF-8 either: the parse error is passed on.
    ASSERT_EQ(add(query("damaged"), QByteArray("bplist00\xff\xff", 10)), Code::success);
    EXPECT_FALSE(keychain.objectForKey("damaged", &error).isValid());
    EXPECT_EQ(error.domain, PropertyList::errorDomain);
    EXPECT_EQ(error.code, PropertyList::readCorruptError);
    EXPECT_TRUE(log.last().startsWith("FXKeychain failed to decode data for key 'damaged', error: "
                                      "Error Domain=NSCocoaErrorDomain Code=3840"))
        << logged();
}

TEST_P(FXKeychainStore, NewKeychainItemForKeyFindsTheItemAndLogsItsContent) {
    ASSERT_TRUE(keychain.setObject(QStringLiteral("content"), "key"));
    log.clear();
    const std::unique_ptr<KeychainItem> found = keychain.newKeychainItemForKey("key");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->account, "key");
    EXPECT_EQ(log, QStringList{"content"});

    log.clear();
    EXPECT_FALSE(keychain.newKeychainItemForKey("missing"));
    EXPECT_EQ(log, QStringList{"(null)"});

    // Names are passed with their character count as length: a non-ASCII account is cut short
    // and so not found, as the older lookup always behaved.
    ASSERT_TRUE(keychain.setObject(QStringLiteral("x"), QStringLiteral("café")));
    EXPECT_FALSE(keychain.newKeychainItemForKey(QStringLiteral("café")));
}

// Memory only from here on.

// A backend whose calls can be made to fail, counting the deletions asked of it.
class FailingBackend final : public KeychainBackend {
public:
    std::unique_ptr<KeychainBackend> inner = makeMemoryKeychainBackend();
    KeychainStatus findStatus = Code::success, addStatus = Code::success, updateStatus = Code::success,
                   removeStatus = Code::success;
    int removals = 0;

    KeychainStatus find(const KeychainQuery& q, const KeychainMatch& match,
                        std::vector<KeychainRecord>* out) override {
        return findStatus ? findStatus : inner->find(q, match, out);
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

    KeychainStatus findAny(const QString& itemClass) {
        std::unique_ptr<KeychainItem> found;
        return services->copyMatchingItem({itemClass, std::nullopt, std::nullopt}, &found);
    }
};

TEST_F(FXKeychainFailures, KeychainFailuresAreReportedAndLogged) {
    // Removing what does not exist never gets as far as a deletion.
    EXPECT_TRUE(keychain.removeObjectForKey("key"));
    EXPECT_EQ(backend->removals, 0);
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
    for (const KeychainQuery& q : {KeychainQuery{KeychainClass::genericPassword, "a", "1"},
                                   KeychainQuery{KeychainClass::genericPassword, "b", "2"},
                                   KeychainQuery{KeychainClass::key, "a", "3"}})
        ASSERT_EQ(services->itemAdd(q, {}), Code::success);

    EXPECT_TRUE(keychain.deleteAllKeysForSecClass(KeychainClass::genericPassword));
    EXPECT_EQ(findAny(KeychainClass::genericPassword), Code::itemNotFound);
    EXPECT_EQ(findAny(KeychainClass::key), Code::success);
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
    const QStringList classes{KeychainClass::genericPassword, KeychainClass::internetPassword,
                              KeychainClass::certificate, KeychainClass::key, KeychainClass::identity};
    for (const QString& itemClass : classes)
        ASSERT_EQ(services->itemAdd({itemClass, "s", "a"}, {}), Code::success);
    Error error;
    EXPECT_TRUE(keychain.resetKeychain(&error));
    EXPECT_EQ(backend->removals, 5);
    for (const QString& itemClass : classes)
        EXPECT_EQ(findAny(itemClass), Code::itemNotFound) << itemClass.toStdString();

    backend->removeStatus = Code::authFailed;
    backend->removals = 0;
    EXPECT_TRUE(keychain.resetKeychain());
    EXPECT_EQ(backend->removals, 1) << "stops after the first failure";
    EXPECT_FALSE(keychain.resetKeychain(&error));
    EXPECT_EQ(error, Error(FXKeychainErrorDomain, Code::authFailed));
}

TEST(FXKeychain, TheDefaultKeychainIsOneStoreForTheBundleOverTheSharedKeychain) {
    KeychainFixture memory(makeMemoryKeychainBackend());
    KeychainServices::setShared(memory.services);
    FXKeychain& keychain = FXKeychain::defaultKeychain();
    EXPECT_EQ(&keychain, &FXKeychain::defaultKeychain());
    EXPECT_EQ(keychain.service(), Identity::bundleIdentifier());
    EXPECT_FALSE(keychain.accessGroup());
    EXPECT_EQ(keychain.accessibility(), 0u);

    ASSERT_TRUE(keychain.setObject(QStringLiteral("pass"), "iCloudDecryptionPassword"));
    EXPECT_EQ(memory.read(
                  {KeychainClass::genericPassword, Identity::bundleIdentifier(), "iCloudDecryptionPassword"}),
              "pass");
    // Letting go of the replacement brings back a keychain of the platform's own.
    KeychainServices::setShared(nullptr);
    EXPECT_NE(KeychainServices::shared(), memory.services);
}

TEST(FXKeychain, AStoreWithoutServiceMatchesAnyService) {
    KeychainFixture memory(makeMemoryKeychainBackend());
    ASSERT_EQ(memory.add({KeychainClass::genericPassword, "elsewhere", "k"}, "found"), Code::success);
    for (const auto& [service, expected] : std::vector<std::pair<std::optional<QString>, QVariant>>{
             {std::nullopt, "found"}, {QString(), "found"}, {QStringLiteral("mine"), QVariant()}}) {
        FXKeychain store(service, std::nullopt, 0, memory.services);
        EXPECT_EQ(store.objectForKey("k"), expected) << service.value_or("(none)").toStdString();
    }
}

} // namespace
