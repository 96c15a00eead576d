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

// Each name is heard with what its poster wrote before posting it, also after a reset or a write
// made without synchronizing; what a peer left unsaved reaches this process when the peer ends.
TEST(SharedPreferences, WritesInOneProcessAreAnnouncedToAndReadByTheOther) {
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
            seen.push_back({n.name, manager->getSeparatorString(),
                            manager->getChangeColorWhenCodeWillChange(), manager->getAnimateCodeChanges()});
        }));
    const auto heardAll = [&](size_t count) { return waitUntil([&] { return seen.size() == count; }); };
    manager->setChangeColorWhenCodeWillChange(false);
    manager->setAnimateCodeChanges(false);
    ASSERT_TRUE(heardAll(1)) << "this process hears its own post";
    {
        Peer peer;
        ASSERT_TRUE(peer.waitForLine(QStringLiteral("ready"))) << peer.lines.join('\n').toStdString();
        manager->setSeparatorString(QStringLiteral("\u00B7"));
        EXPECT_TRUE(peer.waitForLine(
            QStringLiteral("VPMSeparatorStringDidChangeDarwinNotification separator=\u00B7 color=0")))
            << peer.lines.join('\n').toStdString();
        ASSERT_TRUE(heardAll(2));

        peer.send(QStringLiteral("color 1"));
        ASSERT_TRUE(heardAll(3));
        EXPECT_EQ(seen[2].name, platform::Identity::bundleIdentifier() + QLatin1Char('.') +
                                    VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification);
        EXPECT_TRUE(seen[2].color);
        EXPECT_EQ(seen[2].separator, QStringLiteral("\u00B7"));

        // The colour, written after the first post of a reset, may or may not be in at the first.
        peer.send(QStringLiteral("reset"));
        ASSERT_TRUE(heardAll(5));
        EXPECT_TRUE(seen[3].name.endsWith(VPMSeparatorStringDidChangeDarwinNotification));
        EXPECT_EQ(seen[3].separator, QString());
        EXPECT_TRUE(seen[3].animate);
        EXPECT_TRUE(seen[4].name.endsWith(VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification));
        EXPECT_FALSE(seen[4].color);

        peer.send(QStringLiteral("unsynced -"));
        peer.send(QStringLiteral("unsynced-animate 0"));
        ASSERT_TRUE(heardAll(6));
        EXPECT_EQ(seen[5].separator, QStringLiteral("-"));
        EXPECT_TRUE(peer.finish());
    }
    EXPECT_FALSE(manager->getAnimateCodeChanges()) << "saved as the peer ended";
    for (const auto& token : tokens)
        center->removeObserver(token.get());
}

} // namespace
