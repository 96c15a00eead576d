// Two real processes on the private session bus, and foreign D-Bus clients, against the
// notification center. Runs inside scripts/with-session.
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "tests/notifications/NotificationTestSupport.h"
#include "tests/support/TestSupport.h"

#include <QProcess>
#include <QProcessEnvironment>

using namespace notificationtests;
using namespace std::chrono_literals;
using testsupport::spinEventLoop;
using testsupport::waitUntil;

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
        process_.start(program, arguments);
    }
    ~Child() {
        process_.kill();
        process_.waitForFinished();
    }
    bool started() { return process_.waitForStarted(); }
    // Waits for the next line starting with (or, with `anywhere`, containing) `text` and returns
    // it; lines before it are skipped (but stay in lines()). Empty when none comes in `timeout`.
    QString waitForLine(const QString& text, bool anywhere = false, std::chrono::milliseconds timeout = 10s) {
        QString found;
        waitUntil(
            [&] {
                while (process_.canReadLine())
                    lines_ << QString::fromUtf8(process_.readLine()).trimmed();
                for (; found.isEmpty() && cursor_ < lines_.size(); ++cursor_)
                    if (anywhere ? lines_[cursor_].contains(text) : lines_[cursor_].startsWith(text))
                        found = lines_[cursor_];
                return !found.isEmpty() || process_.state() == QProcess::NotRunning;
            },
            timeout);
        return found;
    }
    // A monitor is watching once it has been told it lost its own name (it becomes a monitor then).
    bool waitUntilMonitoring() { return !waitForLine("signal", true).isEmpty(); }
    const QStringList& lines() const { return lines_; }
    int finish() {
        process_.waitForFinished(10000);
        lines_ << QString::fromUtf8(process_.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        return process_.exitCode();
    }

private:
    QProcess process_;
    QStringList lines_;
    qsizetype cursor_ = 0;
};

// Observes a fresh name on otpDarwinNotificationCenter() in this process.
class CrossProcessNotifications : public ::testing::Test {
protected:
    void TearDown() override { center->removeObserver(token.get()); }
    // Lets stray extra deliveries show up, then checks this process heard `count` posts of `name`.
    void expectHeardHere(int count) {
        ASSERT_TRUE(waitUntil([&] { return heard.size() >= count; }));
        spinEventLoop(200ms);
        EXPECT_EQ(heard, QStringList(count, fullName(name)));
    }
    const QString name = uniqueName("crossprocess");
    std::shared_ptr<PLXNotificationCenter> center =
        PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    QStringList heard;
    PLXNotificationCenter::ObserverToken token =
        center->addObserverForName(name, nullptr, [this](const auto& n) { heard << n.name; });
};

TEST_F(CrossProcessNotifications, PostReachesTheOtherProcessAndItselfOncePerPost) {
    Child observer(NOTIFICATIONS_HELPER, {"observe", name, "3"});
    ASSERT_TRUE(observer.started());
    ASSERT_EQ(observer.waitForLine("ready"), "ready");
    for (int i = 0; i < 3; ++i)
        center->postNotificationName(name);
    EXPECT_EQ(observer.waitForLine("total"), "total 3");
    EXPECT_EQ(observer.finish(), 0);
    EXPECT_EQ(observer.lines().count("got " + fullName(name)), 3)
        << observer.lines().join('\n').toStdString();
    expectHeardHere(3);
}

TEST_F(CrossProcessNotifications, PostFromTheOtherProcessReachesThisOneOnlyOverTheBus) {
    // Without a bus, posts stay in the posting process and its log says so once.
    for (const bool bus : {true, false}) {
        SCOPED_TRACE(bus ? "bus" : "no bus");
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        if (!bus)
            environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/marlock-no-bus");
        heard.clear();
        Child poster(NOTIFICATIONS_HELPER, {"post", name, "2"}, environment);
        ASSERT_TRUE(poster.started());
        EXPECT_EQ(poster.waitForLine("self"), "self 2");
        EXPECT_EQ(poster.waitForLine("log"), bus ? "log 0" : "log 1");
        EXPECT_EQ(poster.finish(), 0);
        expectHeardHere(bus ? 2 : 0);
    }
}

TEST_F(CrossProcessNotifications, ForeignSignalReachesAnObserver) {
    QProcess send;
    send.start("dbus-send", {"--session", "--type=signal", "/org/marlock/Notify", "org.marlock.Notify.Posted",
                             "string:" + fullName(name)});
    ASSERT_TRUE(send.waitForFinished(10000));
    ASSERT_EQ(send.exitCode(), 0) << send.readAllStandardError().toStdString();
    expectHeardHere(1);
}

TEST_F(CrossProcessNotifications, PostIsOneSignalOthersCanWatch) {
    Child monitor("dbus-monitor", {"--session", "interface='org.marlock.Notify'"});
    ASSERT_TRUE(monitor.started());
    ASSERT_TRUE(monitor.waitUntilMonitoring());

    center->postNotificationName(name);
    const QString expected = QStringLiteral("string \"%1\"").arg(fullName(name));
    EXPECT_EQ(monitor.waitForLine(expected, true), expected);
    const QStringList& lines = monitor.lines();
    const auto header = std::find_if(lines.rbegin(), lines.rend(), [](const QString& l) {
        return l.contains("interface=org.marlock.Notify");
    });
    ASSERT_NE(header, lines.rend());
    EXPECT_TRUE(header->contains("path=/org/marlock/Notify")) << header->toStdString();
    EXPECT_TRUE(header->contains("member=Posted")) << header->toStdString();
}

TEST_F(CrossProcessNotifications, EachObservedNameIsOneArg0MatchRuleAtTheBus) {
    Child monitor("dbus-monitor", {"--session", "interface='org.freedesktop.DBus',member='AddMatch'"});
    ASSERT_TRUE(monitor.started());
    ASSERT_TRUE(monitor.waitUntilMonitoring());

    const QString other = uniqueName("rule");
    auto first = center->addObserverForName(other, nullptr, [](const auto&) {});
    auto second = center->addObserverForName(other, nullptr, [](const auto&) {});
    const QString rule = monitor.waitForLine("arg0='" + fullName(other) + "'", true);
    for (const QString& part :
         {"arg0='" + fullName(other) + "'", QStringLiteral("interface='org.marlock.Notify'"),
          QStringLiteral("member='Posted'"), QStringLiteral("path='/org/marlock/Notify'")})
        EXPECT_TRUE(rule.contains(part)) << rule.toStdString();
    spinEventLoop(200ms);
    monitor.waitForLine("never printed", true, 300ms);
    EXPECT_EQ(monitor.lines().filter(fullName(other)).size(), 1) << "a second observer adds no rule";
    center->removeObserver(first.get());
    center->removeObserver(second.get());
}

} // namespace
