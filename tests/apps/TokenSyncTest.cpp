// TokenSync between two computers, each with its own keychain, settings and sync manager, over
// one shared cloud: in memory here (the command-line test runs the real keyring and folder).
#include "common/TokenSync.h"
#include "common/TokenStore.h"

#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/platform/keychain/KeychainBackend.h"
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStoreBackend.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/sync/iCloudManager.h"
#include "tests/apps/AppsTestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <QUuid>

#include <gtest/gtest.h>

using companion::SyncSurface;
using companion::TokenStore;
using companion::TokenSync;
using marlockCommon::TokenRecord;

namespace {

TokenRecord record(const QString& issuer) {
    TokenRecord r;
    r.issuer = issuer;
    r.secret = (issuer + QStringLiteral("-secret-key")).toUtf8();
    return r;
}

bool eventually(const std::function<bool()>& condition) {
    QDeadlineTimer deadline(20000);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(10);
    }
    return true;
}

class Computer {
public:
    explicit Computer(const std::shared_ptr<platform::UbiquitousKeyValueMemoryCloud>& cloud)
        : cloudStore_(cloud->makeBackend()) {
        sync.start();
    }

    QStringList issuers() const {
        QStringList result;
        for (const auto& token : tokens.tokens())
            result << token.record.issuer;
        return result;
    }
    void add(const QString& issuer) { ASSERT_TRUE(tokens.add(record(issuer))); }

private:
    const QString service_ =
        QStringLiteral("marlock-tokensync-") + QUuid::createUuid().toString(QUuid::Id128);
    std::shared_ptr<platform::KeychainServices> keychain_ =
        std::make_shared<platform::KeychainServices>(platform::makeMemoryKeychainBackend());
    platform::UbiquitousKeyValueStore cloudStore_;

public:
    iCloudManager manager{platform::UserDefaults::suiteNamed(service_),
                          std::make_unique<FXKeychain>(service_, service_, 0, keychain_), &cloudStore_};
    TokenStore tokens{std::shared_ptr<platform::KeychainBackend>(platform::makeMemoryKeychainBackend())};
    TokenSync sync{&tokens, &manager, SyncSurface::window};
};

// The cloud carries a write to the other computer on a later pass of the event loop, as a sync
// engine would some time later: each computer's first step waits for the other's data.
class TokenSyncTest : public ::testing::Test {
protected:
    QByteArray blob() const { return cloud_->values().value(QStringLiteral("tokens")); }

    appstest::ScopedProfile profile_;
    std::shared_ptr<platform::UbiquitousKeyValueMemoryCloud> cloud_ =
        platform::UbiquitousKeyValueMemoryCloud::create();
    Computer laptop_{cloud_}, desktop_{cloud_};
    QString problem_;
};

TEST_F(TokenSyncTest, ArrivingRecordsReplaceTheTokensAndAreNotPublishedAgain) {
    laptop_.add("Mail");
    laptop_.add("Bank");
    ASSERT_TRUE(laptop_.sync.enable("passcode", true, &problem_)) << problem_.toStdString();
    ASSERT_TRUE(eventually([&] { return desktop_.manager.iCloudDataPresent(); }));
    desktop_.add("Cloud");
    ASSERT_TRUE(desktop_.sync.enable("passcode", true, &problem_)) << problem_.toStdString();
    EXPECT_EQ(desktop_.issuers(), (QStringList{"Mail", "Bank", "Cloud"}));
    EXPECT_TRUE(eventually([&] {
        return laptop_.issuers() == QStringList({"Mail", "Bank", "Cloud"});
    })) << laptop_.issuers().join(',').toStdString();

    // Storing what arrived is no change of this computer's: publishing it again would write a
    // new container (fresh salts), which the other computer would read again, and so on.
    const QByteArray settled = blob();
    testsupport::spinEventLoop(std::chrono::milliseconds(300));
    EXPECT_EQ(blob(), settled);

    // A deletion travels as well.
    ASSERT_TRUE(laptop_.tokens.remove(laptop_.tokens.tokens().front().id));
    EXPECT_NE(blob(), settled);
    EXPECT_TRUE(eventually([&] {
        return desktop_.issuers() == QStringList({"Bank", "Cloud"});
    })) << desktop_.issuers().join(',').toStdString();
}

TEST_F(TokenSyncTest, WithThePasscodeAskedEachTimeNothingMadeHereIsLost) {
    laptop_.add("Mail");
    ASSERT_TRUE(laptop_.sync.enable("passcode", true, &problem_));
    ASSERT_TRUE(eventually([&] { return desktop_.manager.iCloudDataPresent(); }));
    desktop_.add("Cloud");
    EXPECT_FALSE(desktop_.sync.enable("not the passcode", false, &problem_));
    EXPECT_TRUE(problem_.contains("does not open")) << problem_.toStdString();
    EXPECT_FALSE(desktop_.manager.iCloudEnabled());
    ASSERT_TRUE(desktop_.sync.enable("passcode", false, &problem_));
    EXPECT_EQ(desktop_.issuers(), (QStringList{"Mail", "Cloud"}));

    // The desktop cannot publish without a saved passcode. What the laptop publishes next is
    // joined with the desktop's own tokens, never replacing them: at once if the desktop still
    // holds the passcode, else once it is given again (the laptop's announcement makes the
    // desktop forget it, so it is always asked for in the end).
    desktop_.add("Shop");
    laptop_.add("Bank");
    ASSERT_TRUE(eventually([&] { return desktop_.sync.needsPasscode(); }));
    EXPECT_FALSE(desktop_.sync.providePasscode("not the passcode", &problem_));
    EXPECT_TRUE(desktop_.issuers().contains("Shop") && desktop_.issuers().contains("Cloud"));
    ASSERT_TRUE(desktop_.sync.providePasscode("passcode", &problem_)) << problem_.toStdString();
    EXPECT_TRUE(eventually([&] {
        return desktop_.issuers() == QStringList({"Mail", "Cloud", "Shop", "Bank"});
    })) << desktop_.issuers().join(',').toStdString();
}

} // namespace
