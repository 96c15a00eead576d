// Two real processes on the private session bus, and foreign D-Bus clients, against the
// notification center. Runs inside scripts/with-session.
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/Identity.h"
#include "tests/notifications/NotificationTestSupport.h"
#include "tests/support/TestSupport.h"

#include <QDBusConnection>
#include <QProcess>
#include <QProcessEnvironment>

#include <gtest/gtest.h>

using namespace notificationtests;
using namespace std::chrono_literals;

namespace {

QString fullName(const QString& name) {
    return platform::Identity::bundleIdentifier() + "." + name;
}

// A child process whose standard output is read line by line.
class Child {
public:
    explicit Child(const QString& program, const QStringList& arguments,
                   const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment()) {
        process_.setProcessEnvironment(environment);
        process_.setProcessChannelMode(QProcess::SeparateChannels);
        process_.start(program, arguments);
    }
    ~Child() {
        if (process_.state() != QProcess::NotRunning) {
            process_.kill();
            process_.waitForFinished();
        }
    }
    bool started() { return process_.waitForStarted(); }
    // Waits for the next line starting with (or, with `anywhere`, containing) `text` and returns
    // it; lines before it are skipped (but stay in lines()). Empty when none comes in `timeout`.
    QString waitForLine(const QString& text, bool anywhere = false, std::chrono::milliseconds timeout = 10s) {
        QString found;
        testsupport::waitUntil(
            [&] {
                while (process_.canReadLine())
                    lines_ << QString::fromUtf8(process_.readLine()).trimmed();
                for (; found.isEmpty() && cursor_ < lines_.size(); ++cursor_) {
                    const QString& line = lines_.at(cursor_);
                    if (anywhere ? line.contains(text) : line.startsWith(text))
                        found = line;
                }
                return !found.isEmpty() || process_.state() == QProcess::NotRunning;
            },
            timeout);
        return found;
    }
    const QStringList& lines() const { return lines_; }
    int finish() {
        process_.waitForFinished(10000);
        lines_ << QString::fromUtf8(process_.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        return process_.exitCode();
    }
    QProcess& process() { return process_; }

private:
    QProcess process_;
    QStringList lines_;
    qsizetype cursor_ = 0;
};

TEST(CrossProcessNotifications, PostReachesTheOtherProcessAndItselfOncePerPost) {
    const QString name = uniqueName("twoprocs");
    Child observer(NOTIFICATIONS_HELPER, {"observe", name, "3"});
    ASSERT_TRUE(observer.started());
    ASSERT_EQ(observer.waitForLine("ready"), "ready");

    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    QStringList heardHere;
    auto token = center->addObserverForName(name, nullptr, [&](const auto& n) { heardHere << n.name; });
    for (int i = 0; i < 3; ++i)
        center->postNotificationName(name);

    EXPECT_EQ(observer.waitForLine("total"), "total 3");
    EXPECT_EQ(observer.finish(), 0);
    EXPECT_EQ(observer.lines().count("got " + fullName(name)), 3)
        << observer.lines().join('\n').toStdString();
    ASSERT_TRUE(testsupport::waitUntil([&] { return heardHere.size() == 3; }));
    testsupport::spinEventLoop(200ms);
    EXPECT_EQ(heardHere, QStringList(3, fullName(name)));
    center->removeObserver(token.get());
}

TEST(CrossProcessNotifications, PostFromTheOtherProcessReachesThisOne) {
    const QString name = uniqueName("fromchild");
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    QStringList heard;
    auto token = center->addObserverForName(name, nullptr, [&](const auto& n) { heard << n.name; });

    Child poster(NOTIFICATIONS_HELPER, {"post", name, "2"});
    ASSERT_TRUE(poster.started());
    EXPECT_EQ(poster.waitForLine("self"), "self 2");
    EXPECT_EQ(poster.waitForLine("log"), "log 0") << "a process on the bus writes no fallback line";
    EXPECT_EQ(poster.finish(), 0);
    ASSERT_TRUE(testsupport::waitUntil([&] { return heard.size() == 2; }));
    testsupport::spinEventLoop(200ms);
    EXPECT_EQ(heard, QStringList(2, fullName(name)));
    center->removeObserver(token.get());
}

TEST(CrossProcessNotifications, WithoutABusPostsStayInTheProcessAndTheLogSaysSoOnce) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/marlock-no-bus");
    const QString name = uniqueName("nobus");
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    int heardHere = 0;
    auto token = center->addObserverForName(name, nullptr, [&](const auto&) { ++heardHere; });

    Child loner(NOTIFICATIONS_HELPER, {"post", name, "3"}, environment);
    ASSERT_TRUE(loner.started());
    EXPECT_EQ(loner.waitForLine("self"), "self 3");
    EXPECT_EQ(loner.waitForLine("log"), "log 1");
    EXPECT_EQ(loner.finish(), 0);
    testsupport::spinEventLoop(200ms);
    EXPECT_EQ(heardHere, 0) << "nothing crosses without a bus";
    center->removeObserver(token.get());
}

TEST(CrossProcessNotifications, ForeignSignalReachesAnObserver) {
    const QString name = uniqueName("foreign");
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    QStringList heard;
    auto token = center->addObserverForName(name, nullptr, [&](const auto& n) { heard << n.name; });

    QProcess send;
    send.start("dbus-send", {"--session", "--type=signal", "/org/marlock/Notify", "org.marlock.Notify.Posted",
                             "string:" + fullName(name)});
    ASSERT_TRUE(send.waitForFinished(10000));
    ASSERT_EQ(send.exitCode(), 0) << send.readAllStandardError().toStdString();
    ASSERT_TRUE(testsupport::waitUntil([&] { return heard.size() == 1; }));
    testsupport::spinEventLoop(100ms);
    EXPECT_EQ(heard, QStringList{fullName(name)});
    center->removeObserver(token.get());
}

// A monitor is watching once it has been told it lost its own name (it becomes a monitor then).
bool waitUntilMonitoring(Child& monitor) {
    return !monitor.waitForLine("signal", true).isEmpty();
}

TEST(CrossProcessNotifications, PostIsOneSignalOthersCanWatch) {
    Child monitor("dbus-monitor", {"--session", "interface='org.marlock.Notify'"});
    ASSERT_TRUE(monitor.started());
    ASSERT_TRUE(waitUntilMonitoring(monitor));

    const QString name = uniqueName("watched");
    PLXDarwinNotificationCenter::otpDarwinNotificationCenter()->postNotificationName(name);
    const QString expected = QStringLiteral("string \"%1\"").arg(fullName(name));
    const QString seen = monitor.waitForLine(expected, true);
    EXPECT_EQ(seen, expected);
    const QStringList& lines = monitor.lines();
    const auto header = std::find_if(lines.rbegin(), lines.rend(), [](const QString& l) {
        return l.contains("interface=org.marlock.Notify");
    });
    ASSERT_NE(header, lines.rend());
    EXPECT_TRUE(header->contains("path=/org/marlock/Notify")) << header->toStdString();
    EXPECT_TRUE(header->contains("member=Posted")) << header->toStdString();
}

TEST(CrossProcessNotifications, EachObservedNameIsOneArg0MatchRuleAtTheBus) {
    Child monitor("dbus-monitor", {"--session", "interface='org.freedesktop.DBus',member='AddMatch'"});
    ASSERT_TRUE(monitor.started());
    ASSERT_TRUE(waitUntilMonitoring(monitor));

    const QString name = uniqueName("rule");
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    auto first = center->addObserverForName(name, nullptr, [](const auto&) {});
    auto second = center->addObserverForName(name, nullptr, [](const auto&) {});
    const QString rule = monitor.waitForLine("arg0='" + fullName(name) + "'", true);
    EXPECT_TRUE(rule.contains("arg0='" + fullName(name) + "'")) << rule.toStdString();
    EXPECT_TRUE(rule.contains("interface='org.marlock.Notify'")) << rule.toStdString();
    EXPECT_TRUE(rule.contains("member='Posted'")) << rule.toStdString();
    EXPECT_TRUE(rule.contains("path='/org/marlock/Notify'")) << rule.toStdString();
    testsupport::spinEventLoop(200ms);
    monitor.waitForLine("never printed", true, 300ms);
    EXPECT_EQ(monitor.lines().filter(fullName(name)).size(), 1) << "a second observer adds no rule";
    center->removeObserver(first.get());
    center->removeObserver(second.get());
}

} // namespace
