// Two real processes share the preferences: this test process and a peer (vpm_peer) on the
// same application group, the same settings folder and the same session bus.
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"
#include "tests/preferences/QStringPrinter.h"
#include "tests/support/TestSupport.h"

#include <QProcess>
#include <QStringList>

#include <gtest/gtest.h>

using testsupport::waitUntil;

namespace {

// The peer process; it quits once its standard input closes.
class Peer {
public:
    Peer() {
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QStringLiteral(VPM_PEER_PATH), {});
    }
    ~Peer() {
        process_.closeWriteChannel();
        if (!process_.waitForFinished(5000))
            process_.kill();
    }
    void send(const QString& command) { process_.write((command + QLatin1Char('\n')).toUtf8()); }
    // Waits for a line of the peer's output that equals `line`.
    bool waitForLine(const QString& line) {
        return waitUntil([&] {
            while (process_.canReadLine())
                lines.append(QString::fromUtf8(process_.readLine()).trimmed());
            return lines.contains(line);
        });
    }
    QStringList lines;

private:
    QProcess process_;
};

TEST(SharedPreferences, AChangeInOneProcessIsAnnouncedToAndReadByTheOther) {
    ViewPreferencesManager* manager = ViewPreferencesManager::sharedManager();
    platform::UserDefaults* store =
        platform::UserDefaults::suiteNamed(platform::Identity::applicationGroup());
    QStringList heard;
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    auto token =
        center->addObserverForName(VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification, nullptr,
                                   [&](const platform::Notification& n) { heard.append(n.name); });
    manager->setChangeColorWhenCodeWillChange(false);
    ASSERT_TRUE(waitUntil([&] { return heard.size() == 1; })) << "this process hears its own post";

    Peer peer;
    ASSERT_TRUE(peer.waitForLine(QStringLiteral("ready"))) << peer.lines.join('\n').toStdString();

    // This process writes; the peer hears the name and reads the new value from the store.
    manager->setSeparatorString(QStringLiteral("\u00B7"));
    EXPECT_TRUE(peer.waitForLine(
        QStringLiteral("VPMSeparatorStringDidChangeDarwinNotification separator=\u00B7 color=0")))
        << peer.lines.join('\n').toStdString();

    // The peer writes; this process hears the prefixed name and reads the value once its store
    // has taken the change in.
    heard.clear();
    peer.send(QStringLiteral("color 1"));
    ASSERT_TRUE(waitUntil([&] { return !heard.isEmpty(); }));
    EXPECT_EQ(heard.first(), platform::Identity::bundleIdentifier() + QLatin1Char('.') +
                                 VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification);
    ASSERT_TRUE(store->synchronize());
    EXPECT_TRUE(manager->getChangeColorWhenCodeWillChange());
    EXPECT_EQ(manager->getSeparatorString(), QStringLiteral("\u00B7"));

    center->removeObserver(token.get());
}

} // namespace
