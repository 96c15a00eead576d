// The keychain contract: the same behaviour from the in-memory backend and from the Secret
// Service (the throw-away keyring that scripts/with-session starts).
#include "marlockCompanionCommon/platform/KeychainServices.h"

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

template <typename Backend> class KeychainContract : public ::testing::Test {
protected:
    KeychainServices keychain{Backend::make()};
    // A service of its own per test, so that runs never see each other's items.
    const QString service =
        QStringLiteral("marlock-test-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    const QString other = service + QStringLiteral("-other");

    KeychainQuery generic(const QString& account) const {
        return {KeychainClass::genericPassword, service, account};
    }

    void TearDown() override {
        for (const QString& s : {service, other})
            for (const QString& c : {KeychainClass::genericPassword, KeychainClass::internetPassword})
                (void)keychain.itemDelete(KeychainQuery{c, s, std::nullopt});
    }
};

using Backends = ::testing::Types<MemoryBackend, SecretServiceBackend>;
TYPED_TEST_SUITE(KeychainContract, Backends);

TYPED_TEST(KeychainContract, StoredBytesComeBackExactlyWithAReference) {
    const QByteArray secret("\x00\xff\xfe binary\n\x01", 13);
    ASSERT_EQ(this->keychain.itemAdd(this->generic("alice"), {secret, std::nullopt, std::nullopt}),
              Code::success);

    QByteArray data;
    ASSERT_EQ(this->keychain.copyMatchingData(this->generic("alice"), &data), Code::success);
    EXPECT_EQ(data, secret);

    std::unique_ptr<KeychainItem> item;
    ASSERT_EQ(this->keychain.copyMatchingItem(this->generic("alice"), &item), Code::success);
    ASSERT_TRUE(item);
    EXPECT_EQ(item->itemClass, KeychainClass::genericPassword);
    EXPECT_EQ(item->service, this->service);
    EXPECT_EQ(item->account, "alice");
    EXPECT_EQ(item->accessible, KeychainAccessible::whenUnlocked);
    EXPECT_FALSE(item->access);

    const QByteArray big(64 * 1024, 'x');
    ASSERT_EQ(this->keychain.itemAdd(this->generic("big"), {big, std::nullopt, std::nullopt}), Code::success);
    ASSERT_EQ(this->keychain.copyMatchingData(this->generic("big"), &data), Code::success);
    EXPECT_EQ(data, big);

    ASSERT_EQ(this->keychain.itemAdd(this->generic("empty"), {}), Code::success);
    ASSERT_EQ(this->keychain.copyMatchingData(this->generic("empty"), &data), Code::success);
    EXPECT_TRUE(data.isEmpty());
}

TYPED_TEST(KeychainContract, AnItemIsUniqueByClassServiceAndAccount) {
    ASSERT_EQ(this->keychain.itemAdd(this->generic("alice"), {"one", std::nullopt, std::nullopt}),
              Code::success);
    EXPECT_EQ(this->keychain.itemAdd(this->generic("alice"), {"two", std::nullopt, std::nullopt}),
              Code::duplicateItem);
    EXPECT_EQ(this->keychain.itemAdd(this->generic("bob"), {"two", std::nullopt, std::nullopt}),
              Code::success);
    EXPECT_EQ(this->keychain.itemAdd({KeychainClass::genericPassword, this->other, QStringLiteral("alice")},
                                     {"three", std::nullopt, std::nullopt}),
              Code::success);
    EXPECT_EQ(
        this->keychain.itemAdd({KeychainClass::internetPassword, this->service, QStringLiteral("alice")},
                               {"four", std::nullopt, std::nullopt}),
        Code::success);

    QByteArray data;
    ASSERT_EQ(this->keychain.copyMatchingData(this->generic("alice"), &data), Code::success);
    EXPECT_EQ(data, "one");
}

TYPED_TEST(KeychainContract, MissingItemsAreNotFoundEverywhere) {
    QByteArray data("untouched");
    std::unique_ptr<KeychainItem> item;
    EXPECT_EQ(this->keychain.copyMatchingData(this->generic("nobody"), &data), Code::itemNotFound);
    EXPECT_EQ(data, "untouched");
    EXPECT_EQ(this->keychain.copyMatchingItem(this->generic("nobody"), &item), Code::itemNotFound);
    EXPECT_FALSE(item);
    EXPECT_EQ(this->keychain.itemUpdate(this->generic("nobody"), {"x", std::nullopt, std::nullopt}),
              Code::itemNotFound);
    EXPECT_EQ(this->keychain.itemDelete(this->generic("nobody")), Code::itemNotFound);
    EXPECT_EQ(this->keychain.findGenericPassword(this->service.toUtf8(), "nobody", &data, &item),
              Code::itemNotFound);
    EXPECT_EQ(this->keychain.copyMatchingData({QString(), this->service, QStringLiteral("x")}, &data),
              Code::param);
}

TYPED_TEST(KeychainContract, UpdateChangesOnlyTheMatchingItem) {
    ASSERT_EQ(this->keychain.itemAdd(this->generic("alice"), {"old", std::nullopt, std::nullopt}),
              Code::success);
    ASSERT_EQ(this->keychain.itemAdd(this->generic("bob"), {"bob's", std::nullopt, std::nullopt}),
              Code::success);

    ASSERT_EQ(
        this->keychain.itemUpdate(this->generic("alice"), {"new", KeychainAccessible::afterFirstUnlock, {}}),
        Code::success);

    QByteArray data;
    ASSERT_EQ(this->keychain.copyMatchingData(this->generic("alice"), &data), Code::success);
    EXPECT_EQ(data, "new");
    std::unique_ptr<KeychainItem> item;
    ASSERT_EQ(this->keychain.copyMatchingItem(this->generic("alice"), &item), Code::success);
    EXPECT_EQ(item->accessible, KeychainAccessible::afterFirstUnlock);
    ASSERT_EQ(this->keychain.copyMatchingData(this->generic("bob"), &data), Code::success);
    EXPECT_EQ(data, "bob's");

    // Changing only the accessibility keeps the secret.
    ASSERT_EQ(
        this->keychain.itemUpdate(this->generic("alice"), {std::nullopt, KeychainAccessible::always, {}}),
        Code::success);
    ASSERT_EQ(this->keychain.copyMatchingData(this->generic("alice"), &data), Code::success);
    EXPECT_EQ(data, "new");
}

TYPED_TEST(KeychainContract, TheAccessObjectIsRecordedOnTheItem) {
    KeychainAccess access;
    ASSERT_EQ(
        KeychainServices::accessCreate("Marlock Companion", {"/usr/bin/marlock", "/usr/lib/widget"}, &access),
        Code::success);
    ASSERT_EQ(this->keychain.itemAdd(this->generic("alice"), {"secret", std::nullopt, access}),
              Code::success);

    std::unique_ptr<KeychainItem> item;
    ASSERT_EQ(this->keychain.copyMatchingItem(this->generic("alice"), &item), Code::success);
    ASSERT_TRUE(item->access);
    EXPECT_EQ(*item->access, access);

    const KeychainAccess changed{QStringLiteral("Other"), {QStringLiteral("/opt/x")}};
    ASSERT_EQ(this->keychain.itemUpdate(this->generic("alice"), {std::nullopt, std::nullopt, changed}),
              Code::success);
    ASSERT_EQ(this->keychain.copyMatchingItem(this->generic("alice"), &item), Code::success);
    EXPECT_EQ(item->access, changed);
    QByteArray data;
    ASSERT_EQ(this->keychain.copyMatchingData(this->generic("alice"), &data), Code::success);
    EXPECT_EQ(data, "secret");
}

TYPED_TEST(KeychainContract, QueriesWithoutServiceOrAccountMatchEvery) {
    ASSERT_EQ(this->keychain.itemAdd(this->generic("alice"), {"a", std::nullopt, std::nullopt}),
              Code::success);
    ASSERT_EQ(this->keychain.itemAdd(this->generic("bob"), {"b", std::nullopt, std::nullopt}), Code::success);
    ASSERT_EQ(this->keychain.itemAdd({KeychainClass::genericPassword, this->other, QStringLiteral("carol")},
                                     {"c", std::nullopt, std::nullopt}),
              Code::success);

    QByteArray data;
    ASSERT_EQ(
        this->keychain.copyMatchingData({KeychainClass::genericPassword, this->service, std::nullopt}, &data),
        Code::success);
    EXPECT_TRUE(data == "a" || data == "b") << data.constData();

    // Deleting by service removes both of its accounts and nothing of the other service.
    ASSERT_EQ(this->keychain.itemDelete({KeychainClass::genericPassword, this->service, std::nullopt}),
              Code::success);
    EXPECT_EQ(this->keychain.copyMatchingData(this->generic("alice"), &data), Code::itemNotFound);
    EXPECT_EQ(this->keychain.copyMatchingData(this->generic("bob"), &data), Code::itemNotFound);
    EXPECT_EQ(this->keychain.copyMatchingData(
                  {KeychainClass::genericPassword, this->other, QStringLiteral("carol")}, &data),
              Code::success);
}

TYPED_TEST(KeychainContract, AClassWideDeleteRemovesEveryItemOfThatClassOnly) {
    // Internet passwords: a class no other test of this run stores.
    ASSERT_EQ(
        this->keychain.itemAdd({KeychainClass::internetPassword, this->service, QStringLiteral("a")}, {}),
        Code::success);
    ASSERT_EQ(this->keychain.itemAdd({KeychainClass::internetPassword, this->other, QStringLiteral("b")}, {}),
              Code::success);
    ASSERT_EQ(this->keychain.itemAdd(this->generic("kept"), {"kept", std::nullopt, std::nullopt}),
              Code::success);

    ASSERT_EQ(
        this->keychain.itemDelete(KeychainQuery{KeychainClass::internetPassword, std::nullopt, std::nullopt}),
        Code::success);
    EXPECT_EQ(
        this->keychain.itemDelete(KeychainQuery{KeychainClass::internetPassword, std::nullopt, std::nullopt}),
        Code::itemNotFound);
    QByteArray data;
    EXPECT_EQ(this->keychain.copyMatchingData(this->generic("kept"), &data), Code::success);
}

TYPED_TEST(KeychainContract, FindGenericPasswordGivesContentAndAReferenceThatDeletes) {
    ASSERT_EQ(this->keychain.itemAdd(this->generic("alice"), {"pass", std::nullopt, std::nullopt}),
              Code::success);

    QByteArray content;
    std::unique_ptr<KeychainItem> item;
    ASSERT_EQ(this->keychain.findGenericPassword(this->service.toUtf8(), "alice", &content, &item),
              Code::success);
    EXPECT_EQ(content, "pass");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->account, "alice");

    EXPECT_EQ(this->keychain.itemDelete(*item), Code::success);
    EXPECT_EQ(this->keychain.itemDelete(*item), Code::itemNotFound);
    EXPECT_EQ(this->keychain.findGenericPassword(this->service.toUtf8(), "alice", nullptr, nullptr),
              Code::itemNotFound);
}

} // namespace
