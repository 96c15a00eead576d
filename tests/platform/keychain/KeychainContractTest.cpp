// The keychain contract: the same behaviour from the in-memory backend and from the Secret
// Service (the throw-away keyring that scripts/with-session starts).
#include "KeychainTestSupport.h"

using namespace platform;
using namespace keychaintest;
namespace Code = platform::KeychainStatusCode;

namespace {

class KeychainContract : public ::testing::TestWithParam<Backend>, public KeychainFixture {
protected:
    KeychainContract()
        : KeychainFixture(GetParam().make()) {}
};
INSTANTIATE_TEST_SUITE_P(, KeychainContract, backends, backendName);

TEST_P(KeychainContract, StoredBytesComeBackExactlyWithAReference) {
    for (const QByteArray& bytes :
         {QByteArray("\x00\xff\xfe binary\n\x01", 13), QByteArray(64 * 1024, 'x')}) {
        ASSERT_EQ(add(query(QString::number(bytes.size())), bytes), Code::success);
        EXPECT_EQ(read(query(QString::number(bytes.size()))), bytes);
    }
    EXPECT_EQ(item(query("13")), (KeychainItem{KeychainClass::genericPassword, service, "13",
                                               KeychainAccessible::whenUnlocked, std::nullopt}));

    ASSERT_EQ(services->itemAdd(query("empty"), {}), Code::success);
    EXPECT_EQ(read(query("empty")), QByteArray());
}

TEST_P(KeychainContract, AnItemIsUniqueByClassServiceAndAccount) {
    ASSERT_EQ(add(query("alice"), "one"), Code::success);
    EXPECT_EQ(add(query("alice"), "two"), Code::duplicateItem);
    EXPECT_EQ(add(query("bob"), "two"), Code::success);
    EXPECT_EQ(add({KeychainClass::genericPassword, other, QStringLiteral("alice")}, "three"), Code::success);
    EXPECT_EQ(add(query("alice", KeychainClass::internetPassword), "four"), Code::success);
    EXPECT_EQ(read(query("alice")), "one");
}

TEST_P(KeychainContract, MissingItemsAreNotFoundEverywhere) {
    QByteArray data("untouched");
    std::unique_ptr<KeychainItem> ref;
    EXPECT_EQ(services->copyMatchingData(query("nobody"), &data), Code::itemNotFound);
    EXPECT_EQ(data, "untouched");
    EXPECT_EQ(services->copyMatchingItem(query("nobody"), &ref), Code::itemNotFound);
    EXPECT_FALSE(ref);
    EXPECT_EQ(services->itemUpdate(query("nobody"), secret("x")), Code::itemNotFound);
    EXPECT_EQ(services->itemDelete(query("nobody")), Code::itemNotFound);
    EXPECT_EQ(services->findGenericPassword(service.toUtf8(), "nobody", &data, &ref), Code::itemNotFound);
    EXPECT_EQ(services->copyMatchingData({QString(), service, QStringLiteral("x")}, &data), Code::param);
}

TEST_P(KeychainContract, UpdateChangesOnlyTheMatchingItem) {
    ASSERT_EQ(add(query("alice"), "old"), Code::success);
    ASSERT_EQ(add(query("bob"), "bob's"), Code::success);

    ASSERT_EQ(services->itemUpdate(query("alice"), {"new", KeychainAccessible::afterFirstUnlock, {}}),
              Code::success);
    EXPECT_EQ(read(query("alice")), "new");
    EXPECT_EQ(item(query("alice")).value().accessible, KeychainAccessible::afterFirstUnlock);
    EXPECT_EQ(read(query("bob")), "bob's");

    // Changing only the accessibility keeps the secret.
    ASSERT_EQ(services->itemUpdate(query("alice"), {std::nullopt, KeychainAccessible::always, {}}),
              Code::success);
    EXPECT_EQ(read(query("alice")), "new");
}

TEST_P(KeychainContract, TheAccessObjectIsRecordedOnTheItem) {
    KeychainAccess access;
    ASSERT_EQ(
        KeychainServices::accessCreate("Marlock Companion", {"/usr/bin/marlock", "/usr/lib/widget"}, &access),
        Code::success);
    ASSERT_EQ(services->itemAdd(query("alice"), {"secret", std::nullopt, access}), Code::success);
    EXPECT_EQ(item(query("alice")).value().access, access);

    const KeychainAccess changed{QStringLiteral("Other"), {QStringLiteral("/opt/x")}};
    ASSERT_EQ(services->itemUpdate(query("alice"), {std::nullopt, std::nullopt, changed}), Code::success);
    EXPECT_EQ(item(query("alice")).value().access, changed);
    EXPECT_EQ(read(query("alice")), "secret");
}

TEST_P(KeychainContract, QueriesWithoutServiceOrAccountMatchEvery) {
    ASSERT_EQ(add(query("alice"), "a"), Code::success);
    ASSERT_EQ(add(query("bob"), "b"), Code::success);
    const KeychainQuery carol{KeychainClass::genericPassword, other, QStringLiteral("carol")};
    ASSERT_EQ(add(carol, "c"), Code::success);

    const KeychainQuery wholeService{KeychainClass::genericPassword, service, std::nullopt};
    const QByteArray any = read(wholeService).value_or("none");
    EXPECT_TRUE(any == "a" || any == "b") << any.constData();

    // Deleting by service removes both of its accounts and nothing of the other service.
    ASSERT_EQ(services->itemDelete(wholeService), Code::success);
    EXPECT_EQ(read(query("alice")), std::nullopt);
    EXPECT_EQ(read(query("bob")), std::nullopt);
    EXPECT_EQ(read(carol), "c");
}

TEST_P(KeychainContract, AClassWideDeleteRemovesEveryItemOfThatClassOnly) {
    // Internet passwords: a class no other test of this run stores.
    ASSERT_EQ(services->itemAdd(query("a", KeychainClass::internetPassword), {}), Code::success);
    ASSERT_EQ(services->itemAdd({KeychainClass::internetPassword, other, QStringLiteral("b")}, {}),
              Code::success);
    ASSERT_EQ(add(query("kept"), "kept"), Code::success);

    const KeychainQuery everyInternetPassword{KeychainClass::internetPassword, std::nullopt, std::nullopt};
    ASSERT_EQ(services->itemDelete(everyInternetPassword), Code::success);
    EXPECT_EQ(services->itemDelete(everyInternetPassword), Code::itemNotFound);
    EXPECT_EQ(read(query("kept")), "kept");
}

TEST_P(KeychainContract, FindGenericPasswordGivesContentAndAReferenceThatDeletes) {
    ASSERT_EQ(add(query("alice"), "pass"), Code::success);

    QByteArray content;
    std::unique_ptr<KeychainItem> ref;
    ASSERT_EQ(services->findGenericPassword(service.toUtf8(), "alice", &content, &ref), Code::success);
    EXPECT_EQ(content, "pass");
    ASSERT_TRUE(ref);
    EXPECT_EQ(ref->account, "alice");

    EXPECT_EQ(services->itemDelete(*ref), Code::success);
    EXPECT_EQ(services->itemDelete(*ref), Code::itemNotFound);
    EXPECT_EQ(services->findGenericPassword(service.toUtf8(), "alice", nullptr, nullptr), Code::itemNotFound);
}

} // namespace
