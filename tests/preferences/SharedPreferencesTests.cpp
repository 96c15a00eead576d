// Two real processes share the preferences: this test process and a peer (vpm_peer) on the
// same application group, the same settings folder and the same session bus.
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"
#include "tests/preferences/QStringPrinter.h"
#include "tests/support/TestSupport.h"

#include <QProcess>
#include <QStringList>

#include <gtest/gtest.h>

#include <vector>

using testsupport::waitUntil;

namespace {

// The peer process; it quits once its standard input closes.
class Peer {
public:
    Peer() {
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QStringLiteral(VPM_PEER_PATH), {});
    }
    ~Peer() { (void)finish(); }
    // Closes the peer's input, so that it ends as a program does; true when it ended by itself.
    bool finish() {
        process_.closeWriteChannel();
        if (process_.waitForFinished(5000))
            return process_.exitStatus() == QProcess::NormalExit && process_.exitCode() == 0;
        process_.kill();
        process_.waitForFinished();
        return false;
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

    // The peer writes; this process hears the prefixed name and reads the value.
    heard.clear();
    peer.send(QStringLiteral("color 1"));
    ASSERT_TRUE(waitUntil([&] { return !heard.isEmpty(); }));
    EXPECT_EQ(heard.first(), platform::Identity::bundleIdentifier() + QLatin1Char('.') +
                                 VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification);
    EXPECT_TRUE(manager->getChangeColorWhenCodeWillChange());
    EXPECT_EQ(manager->getSeparatorString(), QStringLiteral("\u00B7"));

    center->removeObserver(token.get());
}

TEST(SharedPreferences, AResetAndWritesLeftUnsynchronizedReachTheOtherProcess) {
    ViewPreferencesManager* manager = ViewPreferencesManager::sharedManager();
    // What this process reads the moment it hears a name, as a host redrawing then would.
    struct Seen {
        QString name, separator;
        bool color, animate;
    };
    std::vector<Seen> seen;
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    std::vector<PLXNotificationCenter::ObserverToken> tokens;
    for (const QString& name : {VPMSeparatorStringDidChangeDarwinNotification,
                                VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification})
        tokens.push_back(center->addObserverForName(name, nullptr, [&](const platform::Notification& n) {
            seen.push_back({n.name.section(QLatin1Char('.'), -1), manager->getSeparatorString(),
                            manager->getChangeColorWhenCodeWillChange(), manager->getAnimateCodeChanges()});
        }));
    manager->setSeparatorString(QStringLiteral("\u00B7"));
    manager->setChangeColorWhenCodeWillChange(true);
    manager->setAnimateCodeChanges(false);
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 2; })) << "this process's own posts";
    seen.clear();

    {
        Peer peer;
        ASSERT_TRUE(peer.waitForLine(QStringLiteral("ready")));
        // Each name is heard with what the peer wrote before posting it (the colour, written
        // after the first post, may or may not be in yet).
        peer.send(QStringLiteral("reset"));
        ASSERT_TRUE(waitUntil([&] { return seen.size() == 2; }));
        EXPECT_EQ(seen[0].name, VPMSeparatorStringDidChangeDarwinNotification);
        EXPECT_EQ(seen[0].separator, QString());
        EXPECT_TRUE(seen[0].animate);
        EXPECT_EQ(seen[1].name, VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification);
        EXPECT_EQ(seen[1].separator, QString());
        EXPECT_FALSE(seen[1].color);
        EXPECT_TRUE(seen[1].animate);

        // Set without synchronizing; then the peer ends.
        peer.send(QStringLiteral("unsynced -"));
        peer.send(QStringLiteral("unsynced-animate 0"));
        ASSERT_TRUE(waitUntil([&] { return seen.size() == 3; }));
        EXPECT_EQ(seen[2].separator, QStringLiteral("-"));
        EXPECT_TRUE(peer.finish());
    }
    EXPECT_FALSE(manager->getAnimateCodeChanges()) << "saved as the peer ended";
    for (const auto& token : tokens)
        center->removeObserver(token.get());
}

} // namespace
