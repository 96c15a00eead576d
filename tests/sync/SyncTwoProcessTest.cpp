// Two processes of one machine — this test as the app, sync_peer as the widget — sharing one
// settings suite, keychain and cloud folder, on one session bus.
#include "tests/sync/SyncPeerProcess.h"
#include "tests/sync/SyncTestSupport.h"

#include <QDir>

using namespace synctest;
using namespace std::chrono_literals;

namespace {

TEST(SyncTwoProcesses, TheWidgetFollowsTheAppAndTheAppSwallowsItsOwnEchoes) {
    testsupport::ScopedIsolatedHome home;
    const QString folder = home.path() + QStringLiteral("/cloud"); // a configured folder must exist
    ASSERT_TRUE(QDir().mkpath(folder));
    qputenv("MARLOCK_CLOUD_FOLDER", folder.toUtf8());
    iCloudManager* app = iCloudManager::sharedManager();
    ManagerNotifications appHeard(app);
    app->start();

    PeerProcess widget;
    struct RemoveSavedPasscode {
        ~RemoveSavedPasscode() { (void)iCloudManager::sharedManager()->disableiCloud(nullptr); }
    } cleanup;
    ASSERT_TRUE(widget.run(QStringLiteral("start"))) << widget.transcript().toStdString();

    // Sync switched on here: the widget reads, finds no data yet and says so.
    app->enableiCloudWithPassword(QStringLiteral("shared-passcode"), true);
    ASSERT_TRUE(widget.waitFor(QStringLiteral("event failed iCloudNotEnabled")))
        << widget.transcript().toStdString();
    ASSERT_TRUE(widget.waitFor(QStringLiteral("event settings-external")));

    // Records set here reach the widget at once, read with the passcode from the keychain.
    const auto records = sampleRecords(5, 20, QStringLiteral("app"));
    widget.clear();
    app->setTokenRecords(records);
    ASSERT_TRUE(widget.waitFor(QStringLiteral("event records ") + summary(records)))
        << widget.transcript().toStdString();
    EXPECT_EQ(widget.records(), summary(records));
    EXPECT_FALSE(widget.transcript().contains(QLatin1String("failed"))) << widget.transcript().toStdString();
    testsupport::spinEventLoop(300ms);
    EXPECT_FALSE(appHeard.names.contains(iCloudManager::didChangeSettingsExternallyNotification))
        << "the app's own two announcements came back to it and were swallowed";

    // The widget holds an entered passcode; the app switches to asking each time: the widget forgets it.
    ASSERT_TRUE(widget.run(QStringLiteral("passcode shared-passcode")));
    widget.clear();
    app->setSavedPasscode(std::nullopt);
    ASSERT_TRUE(widget.waitFor(QStringLiteral("event askeachtime-external none")))
        << widget.transcript().toStdString();
    EXPECT_EQ(widget.records(), QStringLiteral("none")) << "nothing to read with until the user answers";
}

} // namespace
