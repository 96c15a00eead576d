// Two computers on this machine, each with its own home and XDG folders, session bus, keyring,
// Syncthing instance and product process (sync_peer); the two Syncthings share the cloud folder over
// 127.0.0.1 only, with discovery, relays, NAT traversal, usage reporting and upgrades off.
#include "tests/support/FreePort.h"
#include "tests/sync/SyncPeerProcess.h"
#include "tests/sync/SyncRecords.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace synctest;
using namespace std::chrono_literals;

namespace {

// One computer. Every process it starts is a child of this test, stopped by its pid.
class Device {
public:
    explicit Device(const QString& name)
        : name_(name) {
        for (const char* sub : {"home", "run", "config", "data", "cache", "cloud/.stfolder", "syncthing"})
            QDir().mkpath(path(QString::fromLatin1(sub)));
        QFile::setPermissions(path("run"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        env_ = QProcessEnvironment::systemEnvironment();
        for (const char* unset :
             {"DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "WAYLAND_DISPLAY", "MARLOCK_IN_SESSION"})
            env_.remove(QString::fromLatin1(unset));
        env_.insert("HOME", path("home"));
        env_.insert("XDG_RUNTIME_DIR", path("run"));
        env_.insert("XDG_CONFIG_HOME", path("config"));
        env_.insert("XDG_DATA_HOME", path("data"));
        env_.insert("XDG_CACHE_HOME", path("cache"));
        env_.insert("MARLOCK_CLOUD_FOLDER", path("cloud"));
        env_.insert("STNOUPGRADE", "1");
    }
    ~Device() {
        peer.reset();
        for (QProcess* process : {&syncthing_, &keyring_, &bus_}) {
            process->terminate();
            if (!process->waitForFinished(3000)) {
                process->kill();
                process->waitForFinished();
            }
        }
    }

    QString path(const QString& sub) const { return root_.path() + QLatin1Char('/') + sub; }

    // A session bus and an unlocked throw-away keyring of this computer's own.
    bool startSession() {
        bus_.setProcessEnvironment(env_);
        bus_.start("dbus-daemon",
                   {"--session", "--nofork", "--print-address=1", "--address=unix:dir=" + path("run")});
        if (!bus_.waitForReadyRead(10000))
            return false;
        const QString address = QString::fromUtf8(bus_.readLine()).trimmed();
        env_.insert("DBUS_SESSION_BUS_ADDRESS", address);
        keyring_.setProcessEnvironment(env_);
        keyring_.setStandardOutputFile(path("keyring.log"));
        keyring_.setStandardErrorFile(path("keyring.log"));
        keyring_.start("gnome-keyring-daemon", {"--foreground", "--unlock", "--components=secrets"});
        keyring_.write("throw-away-" + name_.toUtf8());
        keyring_.closeWriteChannel();
        QDBusConnection bus = QDBusConnection::connectToBus(address, name_);
        // Ready once the keyring has its default collection: asking earlier would have the bus
        // start a second daemon, without the unlocked keyring.
        const bool ready = testsupport::waitUntil(
            [&] {
                if (!bus.interface()->isServiceRegistered("org.freedesktop.secrets").value())
                    return false;
                const QDBusMessage reply = bus.call(
                    QDBusMessage::createMethodCall("org.freedesktop.secrets", "/org/freedesktop/secrets",
                                                   "org.freedesktop.Secret.Service", "ReadAlias")
                    << QStringLiteral("default"));
                return !reply.arguments().isEmpty() &&
                       reply.arguments().first().value<QDBusObjectPath>().path().contains("/collection/");
            },
            30s);
        QDBusConnection::disconnectFromBus(name_);
        return ready;
    }

    // Syncthing's keys; returns the device ID.
    QString generateSyncthingIdentity() {
        QProcess generate;
        generate.setProcessEnvironment(env_);
        generate.setProcessChannelMode(QProcess::MergedChannels);
        generate.start("syncthing", {"generate", "--home=" + path("syncthing"), "--no-default-folder"});
        generate.waitForFinished(30000);
        const QString output = QString::fromUtf8(generate.readAll());
        const qsizetype at = output.indexOf(QLatin1String("Device ID: "));
        deviceId_ = at < 0 ? QString() : output.mid(at + 11, 63);
        return deviceId_;
    }

    // Shares the cloud folder with `peer`, listening on `port`, talking to 127.0.0.1 only.
    void startSyncthing(const Device& peer, int port, int peerPort) {
        const QString config = QStringLiteral(R"(<configuration version="36">
  <folder id="marlock-cloud" label="cloud" path="%1" type="sendreceive" rescanIntervalS="3600"
          fsWatcherEnabled="true" fsWatcherDelayS="1" ignorePerms="false" autoNormalize="true">
    <device id="%2"></device><device id="%3"></device>
    <minDiskFree unit="%">0</minDiskFree>
  </folder>
  <device id="%2" name="%4" compression="metadata"><address>dynamic</address></device>
  <device id="%3" name="%5" compression="metadata"><address>tcp://127.0.0.1:%7</address></device>
  <gui enabled="false" tls="false"><address>127.0.0.1:0</address></gui>
  <options>
    <listenAddress>tcp://127.0.0.1:%6</listenAddress>
    <globalAnnounceEnabled>false</globalAnnounceEnabled><localAnnounceEnabled>false</localAnnounceEnabled>
    <relaysEnabled>false</relaysEnabled><natEnabled>false</natEnabled><urAccepted>-1</urAccepted>
    <autoUpgradeIntervalH>0</autoUpgradeIntervalH><startBrowser>false</startBrowser>
    <crashReportingEnabled>false</crashReportingEnabled><minHomeDiskFree unit="%">0</minHomeDiskFree>
  </options>
</configuration>
)")
                                   .arg(path("cloud"), deviceId_, peer.deviceId_, name_, peer.name_)
                                   .arg(port)
                                   .arg(peerPort);
        QFile file(path("syncthing/config.xml"));
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(config.toUtf8());
        file.close();
        syncthing_.setProcessEnvironment(env_);
        syncthing_.setStandardOutputFile(path("syncthing.log"));
        syncthing_.setStandardErrorFile(path("syncthing.log"));
        syncthing_.start("syncthing", {"serve", "--home=" + path("syncthing"), "--no-browser", "--no-restart",
                                       "--no-upgrade"});
    }

    void startProduct() { peer = std::make_unique<PeerProcess>(QStringList{}, env_); }

    std::unique_ptr<PeerProcess> peer;

private:
    const QString name_;
    // Short: the bus and keyring sockets live in it, and libdbus refuses socket paths of 100 bytes or more.
    QTemporaryDir root_{QDir::tempPath() + QStringLiteral("/d-XXXXXX")};
    QProcessEnvironment env_;
    QString deviceId_;
    QProcess bus_, keyring_, syncthing_;
};

// Waits until `peer` reports the records `records` read after a change from elsewhere; returns
// the seconds it took, or a negative number.
double secondsUntilRecords(Device& device, const iCloudManager::TokenRecords& records,
                           QDeadlineTimer budget) {
    QElapsedTimer elapsed;
    elapsed.start();
    const bool arrived = device.peer->waitFor(QStringLiteral("event records ") + summary(records),
                                              std::chrono::milliseconds(budget.remainingTime()));
    return arrived ? static_cast<double>(elapsed.elapsed()) / 1000.0 : -1;
}

TEST(SyncTwoDevices, RecordsTravelThroughSyncthingBothWaysAndSettleAfterSimultaneousWrites) {
    Device a(QStringLiteral("laptop-a")), b(QStringLiteral("laptop-b"));
    ASSERT_TRUE(a.startSession() && b.startSession()) << "dbus-daemon and gnome-keyring-daemon must start";
    // A minute for everything from the engines' start on; a loaded machine may take longer to
    // bring up the keyrings above.
    const QDeadlineTimer budget(60s);
    ASSERT_FALSE(a.generateSyncthingIdentity().isEmpty());
    ASSERT_FALSE(b.generateSyncthingIdentity().isEmpty());
    const int portA = testsupport::freePort(), portB = testsupport::freePort();
    a.startSyncthing(b, portA, portB);
    b.startSyncthing(a, portB, portA);
    a.startProduct();
    b.startProduct();
    for (Device* device : {&a, &b}) {
        ASSERT_TRUE(device->peer->run(QStringLiteral("start"))) << device->peer->transcript().toStdString();
        ASSERT_TRUE(device->peer->run(QStringLiteral("enable same-passcode 1")));
    }

    // A → B, the first time including the two Syncthings finding each other; then B → A, A → B.
    const auto first = sampleRecords(3, 20, QStringLiteral("a1"));
    ASSERT_TRUE(a.peer->run(QStringLiteral("set 3 a1")));
    const double firstSeconds = secondsUntilRecords(b, first, budget);
    ASSERT_GE(firstSeconds, 0) << b.peer->transcript().toStdString();
    const auto fromB = sampleRecords(2, 20, QStringLiteral("b1"));
    ASSERT_TRUE(b.peer->run(QStringLiteral("set 2 b1")));
    const double backSeconds = secondsUntilRecords(a, fromB, budget);
    ASSERT_GE(backSeconds, 0) << a.peer->transcript().toStdString();
    const auto again = sampleRecords(4, 20, QStringLiteral("a2"));
    ASSERT_TRUE(a.peer->run(QStringLiteral("set 4 a2")));
    const double againSeconds = secondsUntilRecords(b, again, budget);
    ASSERT_GE(againSeconds, 0) << b.peer->transcript().toStdString();
    std::printf("[ figures  ] two devices over Syncthing: A->B %.2f s (first, with connecting), B->A %.2f s, "
                "A->B %.2f s\n",
                firstSeconds, backSeconds, againSeconds);

    // Both write at once: they settle on one of the two, which both open; conflict copies are ignored.
    a.peer->send(QStringLiteral("set 5 a3"));
    b.peer->send(QStringLiteral("set 6 b3"));
    const QStringList candidates = {summary(sampleRecords(5, 20, QStringLiteral("a3"))),
                                    summary(sampleRecords(6, 20, QStringLiteral("b3")))};
    QString settled;
    const QString stored = QStringLiteral("stored same-passcode");
    const bool agreed = testsupport::waitUntil(
        [&] {
            testsupport::spinEventLoop(300ms);
            settled = a.peer->records(stored);
            return settled == b.peer->records(stored) && candidates.contains(settled);
        },
        std::chrono::milliseconds(budget.remainingTime()));
    ASSERT_TRUE(agreed) << "A: " << a.peer->records(stored).toStdString()
                        << " B: " << b.peer->records(stored).toStdString();
    // The device whose write lost has read the winner; the winner keeps what it read before.
    EXPECT_TRUE(a.peer->records() == settled || b.peer->records() == settled);
    for (Device* device : {&a, &b}) {
        device->peer->clear();
        device->peer->send(QStringLiteral("keys"));
        EXPECT_TRUE(device->peer->waitFor(QStringLiteral("keys tokens")))
            << device->peer->transcript().toStdString();
    }
    const QStringList conflicts = QDir(a.path("cloud")).entryList({"*sync-conflict*"}, QDir::Files) +
                                  QDir(b.path("cloud")).entryList({"*sync-conflict*"}, QDir::Files);
    std::printf("[ figures  ] simultaneous writes settled on %s; conflict copies left: %lld\n",
                qPrintable(settled), static_cast<long long>(conflicts.size()));
}

} // namespace
