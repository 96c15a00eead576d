// The Secret Service backend's failure statuses, each seen from a process of its own: without a
// session bus, and with the default collection locked (in a private session, so that locking
// never disturbs the other tests of the run).
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"

#include <QCoreApplication>
#include <QProcess>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace platform;
namespace Code = platform::KeychainStatusCode;

namespace {

const char* const kLockedChild = "MARLOCK_KEYCHAIN_LOCKED_CHILD";

KeychainQuery itemQuery(const char* account) {
    return {KeychainClass::genericPassword, QStringLiteral("locked-test"), QString::fromUtf8(account)};
}

// Locks the default collection the way a screen locker or the user would.
bool lockDefaultCollection() {
    QProcess gdbus;
    gdbus.start(QStringLiteral("gdbus"),
                {"call", "--session", "--dest", "org.freedesktop.secrets", "--object-path",
                 "/org/freedesktop/secrets", "--method", "org.freedesktop.Secret.Service.Lock",
                 "[objectpath '/org/freedesktop/secrets/aliases/default']"});
    return gdbus.waitForFinished() && gdbus.exitCode() == 0 &&
           gdbus.readAllStandardOutput().contains("aliases/default");
}

} // namespace

TEST(KeychainSecretServiceDeathTest, WithoutASessionBusTheKeychainIsNotAvailable) {
    // The child connects for the first time after its bus address points nowhere.
    EXPECT_EXIT(
        {
            setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/marlock-test-bus", 1);
            KeychainServices keychain(makeSecretServiceKeychainBackend());
            QByteArray data;
            const KeychainStatus read = keychain.copyMatchingData(itemQuery("a"), &data);
            const KeychainStatus add = keychain.itemAdd(itemQuery("a"), {});
            std::_Exit(read == Code::notAvailable && add == Code::notAvailable ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(KeychainSecretServiceLocked, ALockedCollectionRefusesAccess) {
    if (qEnvironmentVariable(kLockedChild) != QLatin1String("1")) {
        // Run this same test again inside a session of its own.
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("MARLOCK_IN_SESSION"));
        env.insert(QString::fromLatin1(kLockedChild), QStringLiteral("1"));
        child.setProcessEnvironment(env);
        child.setProcessChannelMode(QProcess::MergedChannels);
        child.start(QStringLiteral(MARLOCK_SOURCE_DIR "/scripts/with-session"),
                    {QCoreApplication::applicationFilePath(),
                     QStringLiteral("--gtest_filter=KeychainSecretServiceLocked.*")});
        ASSERT_TRUE(child.waitForFinished(120000));
        const QString output = QString::fromUtf8(child.readAll());
        EXPECT_EQ(child.exitCode(), 0) << output.toStdString();
        EXPECT_TRUE(output.contains(QLatin1String("[  PASSED  ] 1 test"))) << output.toStdString();
        return;
    }

    KeychainServices keychain(makeSecretServiceKeychainBackend());
    ASSERT_EQ(keychain.itemAdd(itemQuery("a"), {"secret", std::nullopt, std::nullopt}), Code::success);
    ASSERT_TRUE(lockDefaultCollection());

    // Libsecret's simple lookup would call this a missing item; the keychain says "locked".
    QByteArray data;
    EXPECT_EQ(keychain.copyMatchingData(itemQuery("a"), &data), Code::authFailed);
    EXPECT_EQ(keychain.itemUpdate(itemQuery("a"), {"new", std::nullopt, std::nullopt}), Code::authFailed);
    EXPECT_EQ(keychain.itemDelete(itemQuery("a")), Code::authFailed);
    EXPECT_EQ(keychain.itemAdd(itemQuery("b"), {"other", std::nullopt, std::nullopt}), Code::authFailed);
}
