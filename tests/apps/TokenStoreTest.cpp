// The token store's contract, run against the in-memory keychain and the Secret Service of the
// throw-away keyring. Stores over one keychain stand in for the programs of one user.
#include "common/TokenStore.h"

#include "marlockCommon/Base32.h"
#include "marlockCompanionCommon/platform/keychain/KeychainBackend.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "tests/apps/AppsTestSupport.h"

#include <gtest/gtest.h>

#include <functional>

using companion::StoredToken;
using companion::TokenStore;
using marlockCommon::TokenRecord;
using namespace std::chrono_literals;

namespace {

TokenRecord record(const QString& issuer, const QString& account, const QByteArray& secret) {
    TokenRecord r;
    r.issuer = issuer;
    r.account = account;
    r.secret = secret;
    return r;
}

struct Backend {
    const char* name;
    bool secretService;
};
void PrintTo(const Backend& backend, std::ostream* out) {
    *out << backend.name;
}

class TokenStoreContract : public ::testing::TestWithParam<Backend> {
protected:
    // Secret Service stores each get a connection of their own, like separate programs; memory
    // stores share one keychain.
    std::shared_ptr<platform::KeychainBackend> keychain() {
        if (GetParam().secretService)
            return std::shared_ptr<platform::KeychainBackend>(platform::makeSecretServiceKeychainBackend());
        return memory_;
    }
    std::unique_ptr<TokenStore> openStore() {
        auto store = std::make_unique<TokenStore>(keychain());
        platform::Error error;
        EXPECT_TRUE(store->reload(&error)) << error.description().toStdString();
        return store;
    }
    // What a store opened now reads.
    std::vector<StoredToken> stored() { return openStore()->tokens(); }

    appstest::ScopedProfile profile_;
    std::shared_ptr<platform::KeychainBackend> memory_{platform::makeMemoryKeychainBackend()};
    const TokenRecord mail_ = record("Mail", "alice@example.org", "mail-secret-0001");
    const TokenRecord cloud_ = record("Cloud", "alice", "cloud-secret-0002");
    const TokenRecord bank_ = record("Bank", "4711", "bank-secret-00003");
};

INSTANTIATE_TEST_SUITE_P(, TokenStoreContract,
                         ::testing::Values(Backend{"Memory", false}, Backend{"SecretService", true}),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_P(TokenStoreContract, EditsKeepTheirOrderAndReachEveryStore) {
    auto store = openStore();
    EXPECT_TRUE(store->tokens().empty());
    const auto mail = store->add(mail_);
    const auto cloud = store->add(cloud_);
    const auto bank = store->add(bank_);
    ASSERT_TRUE(mail && cloud && bank);
    EXPECT_EQ(stored(), (std::vector<StoredToken>{{*mail, mail_}, {*cloud, cloud_}, {*bank, bank_}}));

    TokenRecord hotp = record("Door", "", "door-secret-00004");
    hotp.type = marlockCommon::OTPType::hotp;
    const auto door = store->add(hotp);
    ASSERT_TRUE(door);
    hotp.counter = 7;
    EXPECT_TRUE(store->update(*door, hotp));
    EXPECT_TRUE(store->move(*bank, 0));
    EXPECT_TRUE(store->move(*mail, 3));
    EXPECT_TRUE(store->rename(*cloud, "Cloud 2", "bob"));
    TokenRecord renamed = cloud_;
    renamed.issuer = "Cloud 2";
    renamed.account = "bob";
    const std::vector<StoredToken> expected{{*bank, bank_}, {*cloud, renamed}, {*door, hotp}, {*mail, mail_}};
    EXPECT_EQ(store->tokens(), expected);
    EXPECT_EQ(stored(), expected);

    EXPECT_TRUE(store->remove(*cloud));
    EXPECT_EQ(stored(), (std::vector<StoredToken>{{*bank, bank_}, {*door, hotp}, {*mail, mail_}}));
    EXPECT_EQ(store->records(), (std::vector<TokenRecord>{bank_, hotp, mail_}));
}

TEST_P(TokenStoreContract, RefusedChangesLeaveEverythingAsItWas) {
    auto store = openStore();
    const auto mail = store->add(mail_);
    TokenRecord hotp = record("Door", "", "door-secret-00004");
    hotp.type = marlockCommon::OTPType::hotp;
    ASSERT_TRUE(mail && store->add(hotp));
    const auto before = stored();

    TokenRecord laterCounter = hotp;
    laterCounter.counter = 3;
    TokenRecord badDigits = cloud_;
    badDigits.digits = 9;
    const struct {
        const char* what;
        std::function<bool(platform::Error*)> change;
        qint64 code;
    } refusals[] = {
        {"the same token again", [&](auto* e) { return bool(store->add(mail_, e)); },
         TokenStore::duplicateToken},
        {"an HOTP token at a later counter", [&](auto* e) { return bool(store->add(laterCounter, e)); },
         TokenStore::duplicateToken},
        {"a token that computes no codes", [&](auto* e) { return bool(store->add(badDigits, e)); },
         TokenStore::invalidToken},
        {"an invalid update", [&](auto* e) { return store->update(*mail, badDigits, e); },
         TokenStore::invalidToken},
        {"an update of an unknown id", [&](auto* e) { return store->update("nope", cloud_, e); },
         TokenStore::noSuchToken},
        {"a rename of an unknown id", [&](auto* e) { return store->rename("nope", "a", "b", e); },
         TokenStore::noSuchToken},
        {"a move before the first place", [&](auto* e) { return store->move(*mail, -1, e); },
         TokenStore::noSuchPosition},
        {"a move past the last place", [&](auto* e) { return store->move(*mail, 2, e); },
         TokenStore::noSuchPosition},
        {"removing an unknown id", [&](auto* e) { return store->remove("nope", e); },
         TokenStore::noSuchToken},
        {"replacing with a token that computes no codes",
         [&](auto* e) {
             return store->replaceAll({cloud_, badDigits}, e);
         },
         TokenStore::invalidToken},
    };
    for (const auto& refusal : refusals) {
        platform::Error error;
        EXPECT_FALSE(refusal.change(&error)) << refusal.what;
        EXPECT_EQ(error.domain, TokenStore::errorDomain) << refusal.what;
        EXPECT_EQ(error.code, refusal.code) << refusal.what;
        EXPECT_FALSE(error.description().isEmpty()) << refusal.what;
        EXPECT_EQ(stored(), before) << refusal.what;
    }
    // The same key under another name is another account, not a duplicate.
    TokenRecord otherAccount = mail_;
    otherAccount.account = "bob@example.org";
    EXPECT_TRUE(store->add(otherAccount));
}

TEST_P(TokenStoreContract, ReplacingAllKeepsUnchangedTokensAndStoresEachOnce) {
    auto store = openStore();
    const auto mail = store->add(mail_);
    const auto cloud = store->add(cloud_);
    ASSERT_TRUE(mail && cloud);
    TokenRecord renamedMail = mail_;
    renamedMail.account = "alice@example.net";

    ASSERT_TRUE(store->replaceAll({cloud_, renamedMail, bank_, bank_}));
    const auto after = stored();
    ASSERT_EQ(after.size(), 3u);
    EXPECT_EQ(after[0], (StoredToken{*cloud, cloud_}));
    EXPECT_EQ(after[1].record, renamedMail);
    EXPECT_EQ(after[2].record, bank_);
    EXPECT_EQ(store->tokens(), after);

    ASSERT_TRUE(store->replaceAll({}));
    EXPECT_TRUE(stored().empty());
}

TEST_P(TokenStoreContract, TheOrderIsAHintAndForeignItemsAreLeftAlone) {
    auto store = openStore();
    const auto mail = store->add(mail_);
    const auto cloud = store->add(cloud_);
    ASSERT_TRUE(mail && cloud);
    // What another program may leave: a token the order does not name (its order write was lost),
    // an item that is not a key URI, and an order naming a token that is gone.
    auto keychain = this->keychain();
    const QString service = platform::Identity::bundleIdentifier() + ".tokens";
    auto item = [&](const QString& itemService, const QString& account, const QByteArray& data) {
        return platform::KeychainRecord{
            {platform::KeychainClass::genericPassword, itemService, account, "ak", std::nullopt}, data};
    };
    ASSERT_EQ(keychain->add(item(service, "late",
                                 "otpauth://totp/Late?secret=" +
                                     marlockCommon::Base32::encode("late-secret-0005", false).toUtf8())),
              0);
    const QByteArray damaged = "not a key uri, but secret-looking bytes";
    ASSERT_EQ(keychain->add(item(service, "damaged", damaged)), 0);
    ASSERT_EQ(keychain->update({platform::KeychainClass::genericPassword, service + ".order", "order"},
                               {("gone\n" + *cloud + "\n" + *mail).toUtf8(), std::nullopt, std::nullopt}),
              0);

    QStringList log;
    platform::SystemLogCapture capture([&](const QString& line) { log << line; });
    auto reader = openStore();
    const auto& tokens = reader->tokens();
    ASSERT_EQ(tokens.size(), 3u);
    EXPECT_EQ(tokens[0].id, *cloud);
    EXPECT_EQ(tokens[1].id, *mail);
    EXPECT_EQ(tokens[2].id, "late");
    ASSERT_TRUE(reader->reload());
    ASSERT_EQ(log.size(), 1) << "the damaged item is reported once per store";
    EXPECT_TRUE(log[0].contains("damaged"));
    EXPECT_FALSE(log[0].contains(damaged)) << "the content may be a secret";
    // Moving rewrites the order with what is there; the foreign item stays untouched.
    EXPECT_TRUE(reader->move("late", 0));
    EXPECT_EQ(stored().front().id, "late");
    std::vector<platform::KeychainRecord> found;
    EXPECT_EQ(keychain->find({platform::KeychainClass::genericPassword, service, "damaged"}, {.data = true},
                             &found),
              0);
}

TEST_P(TokenStoreContract, OtherStoresFollowAChangeWithoutBeingAsked) {
    auto writer = openStore();
    auto follower = openStore();
    std::vector<TokenStore::ChangeOrigin> heardByWriter, heardByFollower;
    QObject::connect(writer.get(), &TokenStore::tokensChanged,
                     [&](auto origin) { heardByWriter.push_back(origin); });
    QObject::connect(follower.get(), &TokenStore::tokensChanged,
                     [&](auto origin) { heardByFollower.push_back(origin); });

    ASSERT_TRUE(writer->add(mail_));
    EXPECT_EQ(heardByWriter, std::vector{TokenStore::ChangeOrigin::thisStore});
    ASSERT_TRUE(testsupport::waitUntil([&] { return !heardByFollower.empty(); }));
    EXPECT_EQ(follower->tokens(), writer->tokens());
    testsupport::spinEventLoop(300ms);
    EXPECT_EQ(heardByWriter.size(), 1u) << "its own announcement changes nothing for the writer";
    EXPECT_EQ(heardByFollower, std::vector{TokenStore::ChangeOrigin::elsewhere});
}

} // namespace
