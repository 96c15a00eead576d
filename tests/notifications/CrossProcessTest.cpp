// Two real processes on the private session bus, and foreign D-Bus clients, against the
// notification center. Runs inside scripts/with-session.
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "tests/notifications/NotificationTestSupport.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <atomic>

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

// A bus of our own that refuses every match rule, as a bus whose per-connection limit a
// process has used up would. Stopped (by its own process handle) when the object goes. It
// listens on an abstract socket: a socket path under a test run's nested temporary folders can
// exceed the 108 bytes a socket address holds, and the daemon would exit without a word.
class BusRefusingMatchRules {
public:
    BusRefusingMatchRules() {
        QFile config(dir_.filePath("bus.conf"));
        config.open(QIODevice::WriteOnly);
        config.write(
            QStringLiteral(R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:abstract=marlock-refusing-bus-%1</listen>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
  </policy>
  <limit name="max_match_rules_per_connection">0</limit>
</busconfig>
)")
                .arg(QCoreApplication::applicationPid())
                .toUtf8());
        config.close();
        daemon_.start("dbus-daemon", {"--nofork", "--print-address=1", "--config-file=" + config.fileName()});
        if (daemon_.waitForStarted() && waitUntil([&] { return daemon_.canReadLine(); }, 10s))
            address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
    }
    ~BusRefusingMatchRules() {
        daemon_.kill();
        daemon_.waitForFinished();
    }
    QString address() const { return address_; }

private:
    QTemporaryDir dir_;
    QProcess daemon_;
    QString address_;
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
    Child observer(NOTIFICATIONS_HELPER, {"observe", "3", name});
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
    // Without a bus, or on a bus that will not pass signals on, posts still reach the posting
    // process, once each, and its log says once that others are not heard.
    BusRefusingMatchRules refusing;
    ASSERT_FALSE(refusing.address().isEmpty());
    const struct {
        const char* what;
        QString address;
        bool reachesUs;
        const char* logSays;
    } cases[] = {
        {"bus", qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"), true, nullptr},
        {"no bus", "unix:path=/nonexistent/marlock-no-bus", false, "no D-Bus session bus"},
        {"bus refusing match rules", refusing.address(), false, "refused to pass on notifications"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DBUS_SESSION_BUS_ADDRESS", c.address);
        heard.clear();
        Child poster(NOTIFICATIONS_HELPER, {"post", "2", name}, environment);
        ASSERT_TRUE(poster.started());
        EXPECT_EQ(poster.waitForLine("self"), "self 2");
        EXPECT_EQ(poster.waitForLine("log "), c.reachesUs ? "log 0" : "log 1");
        EXPECT_EQ(poster.finish(), 0);
        if (c.logSays) {
            EXPECT_EQ(poster.lines().filter("logged ").filter(c.logSays).size(), 1)
                << poster.lines().join('\n').toStdString();
        }
        expectHeardHere(c.reachesUs ? 2 : 0);
    }
}

TEST_F(CrossProcessNotifications, NamesOfAnyTextAndLengthArriveExactlyOncePerPostFromEveryPoster) {
    // Quotes, text beyond ASCII and Latin-1, and lengths beyond what a D-Bus match rule holds.
    const QStringList names{
        uniqueName("Grüße.x"),
        uniqueName("日本.🙂"),
        uniqueName("it's.a'quote\\"),
        uniqueName(QString(2000, 'n')),
        QString(PLXDarwinNotificationCenter::maximumNameLength -
                    platform::Identity::bundleIdentifier().size() - 1,
                'm'),
    };
    QStringList heardHere;
    std::vector<PLXNotificationCenter::ObserverToken> tokens;
    for (const QString& n : names)
        tokens.push_back(
            center->addObserverForName(n, nullptr, [&](const auto& got) { heardHere << got.name; }));
    Child observer(NOTIFICATIONS_HELPER, QStringList{"observe", "3"} + names);
    ASSERT_TRUE(observer.started());
    ASSERT_EQ(observer.waitForLine("ready"), "ready");

    for (const QString& n : names) // this process
        center->postNotificationName(n);
    for (const QString& n : names) { // a program that only knows the wire contract
        QProcess send;
        send.start("dbus-send", {"--session", "--type=signal", "/org/marlock/Notify",
                                 "org.marlock.Notify.Posted", "string:" + fullName(n)});
        ASSERT_TRUE(send.waitForFinished(10000));
        ASSERT_EQ(send.exitCode(), 0) << send.readAllStandardError().toStdString();
    }
    Child poster(NOTIFICATIONS_HELPER, QStringList{"post", "1"} + names); // another process
    ASSERT_TRUE(poster.started());
    EXPECT_EQ(poster.waitForLine("self"), QStringLiteral("self %1").arg(names.size()));

    EXPECT_EQ(observer.waitForLine("total"), QStringLiteral("total %1").arg(3 * names.size()));
    EXPECT_TRUE(waitUntil([&] { return heardHere.size() >= 3 * names.size(); }));
    spinEventLoop(200ms);
    for (const QString& n : names) {
        SCOPED_TRACE(n.left(40).toStdString());
        EXPECT_EQ(observer.lines().count("got " + fullName(n)), 3);
        EXPECT_EQ(heardHere.count(fullName(n)), 3);
    }
    EXPECT_EQ(heardHere.size(), 3 * names.size());
    for (const auto& t : tokens)
        center->removeObserver(t.get());
}

TEST_F(CrossProcessNotifications, DestroyedQueueHearsNothingMoreFromAnyPoster) {
    auto queue = std::make_unique<platform::OperationQueue>(1);
    auto onQueue = std::make_shared<std::atomic<int>>(0);
    auto queued = center->addObserverForName(name, queue.get(), [onQueue](const auto&) { ++*onQueue; });
    center->postNotificationName(name);
    ASSERT_TRUE(waitUntil([&] { return *onQueue == 1; }));

    queue.reset(); // before the observer is removed
    center->postNotificationName(name);
    Child poster(NOTIFICATIONS_HELPER, {"post", "1", name});
    ASSERT_TRUE(poster.started());
    EXPECT_EQ(poster.waitForLine("self"), "self 1");
    expectHeardHere(3); // the main-queue observer saw every post, so each was delivered here
    EXPECT_EQ(*onQueue, 1);
    center->removeObserver(queued.get());
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

TEST_F(CrossProcessNotifications, ObservingANameSendsNothingToTheBus) {
    // The process asked the bus for all posts once, when its center was made; a registration
    // that talked to the bus would wait on it while holding the center's lock.
    QDBusConnection bus = QDBusConnection::sessionBus();
    Child monitor("dbus-monitor",
                  {"--session", QStringLiteral("type='method_call',sender='%1'").arg(bus.baseService())});
    ASSERT_TRUE(monitor.started());
    ASSERT_TRUE(monitor.waitUntilMonitoring());

    auto first = center->addObserverForName(uniqueName("first"), nullptr, [](const auto&) {});
    auto second = center->addObserverForName(uniqueName(QString(1500, 'l')), nullptr, [](const auto&) {});
    center->removeObserver(first.get());
    // A call of our own marks the end: whatever the registrations sent is before it.
    bus.call(QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                            "org.freedesktop.DBus", "GetId"));
    ASSERT_FALSE(monitor.waitForLine("member=GetId", true).isEmpty());
    EXPECT_EQ(monitor.lines().filter("method call").size(), 1) << monitor.lines().join('\n').toStdString();
    center->removeObserver(second.get());
}

} // namespace
