// The Secret Service backend's failure statuses, each seen from a process of its own: without a
// session bus, and with the default collection locked, then deleted (in a private session, so
// that neither disturbs the other tests of the run).
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"

#include <QCoreApplication>
#include <QProcess>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

#include <csignal>
#include <cstdlib>

using namespace platform;
namespace Code = platform::KeychainStatusCode;

namespace {

const char* const kOwnSessionChild = "MARLOCK_KEYCHAIN_OWN_SESSION_CHILD";

KeychainQuery itemQuery(const char* account) {
    return {KeychainClass::genericPassword, QStringLiteral("locked-test"), QString::fromUtf8(account)};
}

// A call made the way another program (a screen locker, the user) would make it; its reply, or
// nothing when it failed.
QByteArray busCall(const QString& destination, const QString& path, const QString& method,
                   const QStringList& arguments = {}) {
    QProcess gdbus;
    gdbus.start(QStringLiteral("gdbus"), QStringList{"call", "--session", "--dest", destination,
                                                     "--object-path", path, "--method", method} +
                                             arguments);
    if (!gdbus.waitForFinished() || gdbus.exitCode() != 0)
        return {};
    return gdbus.readAllStandardOutput();
}

QByteArray secretServiceCall(const QString& path, const QString& method, const QStringList& arguments = {}) {
    return busCall(QStringLiteral("org.freedesktop.secrets"), path, method, arguments);
}

// The pid of the Secret Service daemon, 0 when there is none.
pid_t secretServicePid() {
    const QByteArray reply =
        busCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                "org.freedesktop.DBus.GetConnectionUnixProcessID", {"org.freedesktop.secrets"});
    return static_cast<pid_t>(
        QString::fromLatin1(reply).section(QLatin1Char(' '), 1).section(QLatin1Char(','), 0, 0).toInt());
}

// Stops the daemon that replaced the session's own, when the test ends however it ends.
struct StopReplacement {
    pid_t pid = 0;
    ~StopReplacement() {
        if (pid > 0)
            kill(pid, SIGTERM);
    }
};

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

TEST(KeychainSecretServiceOwnSession, LockedAndMissingCollectionsSayWhatIsWrong) {
    if (qEnvironmentVariable(kOwnSessionChild) != QLatin1String("1")) {
        // Run this same test again inside a session of its own.
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("MARLOCK_IN_SESSION"));
        env.insert(QString::fromLatin1(kOwnSessionChild), QStringLiteral("1"));
        child.setProcessEnvironment(env);
        child.setProcessChannelMode(QProcess::MergedChannels);
        child.start(QStringLiteral(MARLOCK_SOURCE_DIR "/scripts/with-session"),
                    {QCoreApplication::applicationFilePath(),
                     QStringLiteral("--gtest_filter=KeychainSecretServiceOwnSession.*")});
        ASSERT_TRUE(child.waitForFinished(120000));
        const QString output = QString::fromUtf8(child.readAll());
        EXPECT_EQ(child.exitCode(), 0) << output.toStdString();
        EXPECT_TRUE(output.contains(QLatin1String("[  PASSED  ] 1 test"))) << output.toStdString();
        return;
    }

    KeychainServices keychain(makeSecretServiceKeychainBackend());
    QStringList log;
    SystemLogCapture capture([&](const QString& line) { log << line; });
    ASSERT_EQ(keychain.itemAdd(itemQuery("a"), {"secret", std::nullopt, std::nullopt}), Code::success);
    ASSERT_TRUE(secretServiceCall("/org/freedesktop/secrets", "org.freedesktop.Secret.Service.Lock",
                                  {"[objectpath '/org/freedesktop/secrets/aliases/default']"})
                    .contains("aliases/default"));

    // Libsecret's simple lookup would call this a missing item; the keychain says "locked".
    QByteArray data;
    EXPECT_EQ(keychain.copyMatchingData(itemQuery("a"), &data), Code::authFailed);
    EXPECT_EQ(keychain.itemUpdate(itemQuery("a"), {"new", std::nullopt, std::nullopt}), Code::authFailed);
    EXPECT_EQ(keychain.itemDelete(itemQuery("a")), Code::authFailed);
    EXPECT_EQ(keychain.itemAdd(itemQuery("b"), {"other", std::nullopt, std::nullopt}), Code::authFailed);

    // Without a default collection there is nowhere to store: that is what the status says, not
    // "an internal component failed". The service's own words are logged, once for a repeat.
    ASSERT_FALSE(secretServiceCall("/org/freedesktop/secrets/collection/login",
                                   "org.freedesktop.Secret.Collection.Delete")
                     .isEmpty());
    log.clear();
    EXPECT_EQ(keychain.itemAdd(itemQuery("c"), {"secret", std::nullopt, std::nullopt}),
              Code::noDefaultKeychain);
    EXPECT_EQ(keychain.itemAdd(itemQuery("d"), {"secret", std::nullopt, std::nullopt}),
              Code::noDefaultKeychain);
    ASSERT_EQ(log.size(), 1) << log.join('\n').toStdString();
    EXPECT_TRUE(log.front().startsWith("Secret Service CreateItem failed (keychain status -25307): "))
        << log.front().toStdString();
    EXPECT_EQ(keychain.copyMatchingData(itemQuery("a"), &data), Code::itemNotFound);

    // A daemon that restarts knows nothing of the session the backend keeps open: the backend
    // opens a new one rather than failing from then on. (The replacement creates a new default
    // collection, the old one being gone.)
    const pid_t original = secretServicePid();
    ASSERT_GT(original, 0);
    StopReplacement replacement;
    ASSERT_EQ(QProcess::execute("sh", {"-c", "printf replacement | gnome-keyring-daemon --replace --unlock "
                                             "--components=secrets >/dev/null 2>&1"}),
              0);
    // Ready means what the session script waits for too: the alias names a collection, and that
    // collection is unlocked (the alias can appear while the new login collection is still
    // being set up).
    ASSERT_TRUE(testsupport::waitUntil(
        [&] {
            replacement.pid = secretServicePid();
            if (replacement.pid <= 0 || replacement.pid == original)
                return false;
            const QString alias = QString::fromUtf8(secretServiceCall(
                "/org/freedesktop/secrets", "org.freedesktop.Secret.Service.ReadAlias", {"default"}));
            const QString collection = alias.section(QLatin1Char('\''), 1, 1);
            return collection.contains(QLatin1String("/collection/")) &&
                   secretServiceCall(collection, "org.freedesktop.DBus.Properties.Get",
                                     {"org.freedesktop.Secret.Collection", "Locked"})
                       .contains("false");
        },
        std::chrono::seconds(60)));
    log.clear();
    EXPECT_EQ(keychain.itemAdd(itemQuery("e"), {"after restart", std::nullopt, std::nullopt}), Code::success)
        << log.join('\n').toStdString();
    EXPECT_EQ(keychain.copyMatchingData(itemQuery("e"), &data), Code::success);
    EXPECT_EQ(data, "after restart");
}
