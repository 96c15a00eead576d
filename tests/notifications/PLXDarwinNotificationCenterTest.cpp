// The center's behaviour, checked against the in-memory service and against the session bus.
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "tests/notifications/NotificationRecorder.h"
#include "tests/notifications/NotificationTestSupport.h"
#include "tests/support/TestSupport.h"

#include <atomic>

using namespace notificationtests;
using namespace std::chrono_literals;
using testsupport::spinEventLoop;
using testsupport::waitUntil;

namespace {

using PLXDarwinNotificationCenterTest = CenterOnServiceTest;

TEST_P(PLXDarwinNotificationCenterTest, BlockObserverHearsEachPostByNameOnlyOnTheQueueItNamed) {
    const QString name = uniqueName("block");
    QList<platform::Notification> heard;
    bool onMain = true;
    auto token = center.addObserverForName(name, nullptr, [&](const platform::Notification& n) {
        onMain = onMain && platform::isMainThread();
        heard << n;
    });
    ASSERT_TRUE(token);
    platform::OperationQueue worker(1, QStringLiteral("worker"));
    std::atomic<int> workerCalls = 0;
    std::atomic<bool> offMain = true;
    auto workerToken = center.addObserverForName(name, &worker, [&](const platform::Notification&) {
        offMain = offMain && !platform::isMainThread();
        ++workerCalls;
    });

    QObject sender;
    center.postNotification(platform::Notification{name, &sender, {{"key", 1}}});
    center.postNotificationName(name);
    ASSERT_TRUE(waitUntil([&] { return heard.size() == 2 && workerCalls == 2; }));
    spinEventLoop(100ms);
    EXPECT_EQ(heard.size(), 2) << "one delivery per post";
    for (const platform::Notification& n : heard) {
        EXPECT_EQ(n.name, name);
        EXPECT_EQ(n.object, nullptr);
        EXPECT_TRUE(n.userInfo.isEmpty());
    }
    EXPECT_TRUE(onMain);
    EXPECT_TRUE(offMain);
    center.removeObserver(workerToken.get());
    worker.waitUntilAllOperationsAreFinished();
}

TEST_P(PLXDarwinNotificationCenterTest, SelectorObserverRegisteredTwiceIsCalledTwiceInOrder) {
    const QString name = uniqueName("selector");
    NotificationRecorder recorder;
    center.addObserver(&recorder, "first", name);
    center.addObserver(&recorder, "second", name);
    center.addObserver(&recorder, "bare", name);
    EXPECT_EQ(center.observerCount(name), 1) << "one observer, three blocks";

    center.postNotificationName(name);
    ASSERT_TRUE(waitUntil([&] { return recorder.calls.size() == 3; }));
    EXPECT_EQ(recorder.calls, QStringList({"first:" + name, "second:" + name, "bare:"}));
    EXPECT_TRUE(recorder.allOnMainThread);
}

TEST_P(PLXDarwinNotificationCenterTest, RemovalWithdrawsExactlyTheNamesItCovers) {
    const QString a = uniqueName("a"), b = uniqueName("b");
    QStringList both{a, b};
    both.sort();
    NotificationRecorder recorder;
    auto observeBoth = [&] {
        center.addObserver(&recorder, "first", a);
        center.addObserver(&recorder, "first", b);
        EXPECT_EQ(center.registeredNotificationNames(), both);
        EXPECT_EQ(service->observedNames(&center), both);
    };
    auto expectNothingRegistered = [&] {
        EXPECT_TRUE(center.registeredNotificationNames().isEmpty());
        EXPECT_TRUE(service->observedNames(&center).isEmpty());
    };

    center.postNotificationName(uniqueName("nobody")); // with no observers: goes out, registers nothing
    spinEventLoop(50ms);
    expectNothingRegistered();
    observeBoth();
    center.removeObserver(&recorder, a);
    EXPECT_EQ(center.registeredNotificationNames(), QStringList{b});
    center.postNotificationName(a);
    center.postNotificationName(b);
    ASSERT_TRUE(waitUntil([&] { return !recorder.calls.isEmpty(); }));
    spinEventLoop(50ms);
    EXPECT_EQ(recorder.calls, QStringList{"first:" + b});
    center.removeObserver(nullptr, b);                     // no observer: nothing happens
    center.removeObserver(&recorder, uniqueName("never")); // unknown name: nothing happens
    EXPECT_EQ(service->observedNames(&center), QStringList{b});

    center.removeObserver(&recorder, std::nullopt); // no name: every name
    expectNothingRegistered();
    observeBoth();
    center.removeObserver(&recorder);
    expectNothingRegistered();

    NotificationRecorder witness; // another center on the same service still hears posts
    PLXDarwinNotificationCenter other(service);
    other.addObserver(&witness, "first", a);
    center.postNotificationName(a);
    ASSERT_TRUE(waitUntil([&] { return witness.calls.size() == 1; }));
    spinEventLoop(50ms);
    EXPECT_EQ(recorder.calls.size(), 1);
}

TEST_P(PLXDarwinNotificationCenterTest, DroppedTokenKeepsItsBlockFiringUntilRemoved) {
    const QString name = uniqueName("token");
    int calls = 0;
    QPointer<QObject> watch = center.addObserverForName(name, nullptr, [&](const auto&) { ++calls; }).get();
    EXPECT_FALSE(watch.isNull()) << "the center keeps the token";
    EXPECT_EQ(center.retainedObserverCount(), 1);
    center.postNotificationName(name);
    ASSERT_TRUE(waitUntil([&] { return calls == 1; }));

    center.removeObserver(watch.data(), name);
    EXPECT_TRUE(watch.isNull()) << "removal ends the center's hold";
    EXPECT_EQ(center.retainedObserverCount(), 0);
    center.postNotificationName(name);
    spinEventLoop(100ms);
    EXPECT_EQ(calls, 1);
}

TEST_P(PLXDarwinNotificationCenterTest, DestroyedSelectorObserverHearsNothingAndNameStaysRegistered) {
    const QString name = uniqueName("destroyed");
    auto doomed = std::make_unique<NotificationRecorder>();
    center.addObserver(doomed.get(), "first", name);
    EXPECT_EQ(center.retainedObserverCount(), 0) << "selector observers are never kept alive";
    doomed.reset();
    EXPECT_EQ(center.observerCount(name), 0);
    center.postNotificationName(name);
    spinEventLoop(50ms);

    // The table emptied by a death keeps its registration; the next observer simply joins.
    EXPECT_EQ(center.registeredNotificationNames(), QStringList{name});
    NotificationRecorder next;
    center.addObserver(&next, "first", name);
    center.postNotificationName(name);
    ASSERT_TRUE(waitUntil([&] { return next.calls.size() == 1; }));
    spinEventLoop(50ms);
    EXPECT_EQ(next.calls.size(), 1);
}

TEST_P(PLXDarwinNotificationCenterTest, EveryCenterOnTheServiceHearsAPostUntilItIsDestroyed) {
    const QString name = uniqueName("shared");
    auto other = std::make_unique<PLXDarwinNotificationCenter>(service);
    const void* otherIdentity = other.get();
    int mine = 0, theirs = 0;
    auto t1 = center.addObserverForName(name, nullptr, [&](const auto&) { ++mine; });
    auto t2 = other->addObserverForName(name, nullptr, [&](const auto&) { ++theirs; });
    for (int i = 0; i < 3; ++i)
        center.postNotificationName(name);
    ASSERT_TRUE(waitUntil([&] { return mine == 3 && theirs == 3; }));
    spinEventLoop(100ms);
    EXPECT_EQ(mine, 3) << "the poster hears its own posts";
    EXPECT_EQ(theirs, 3);

    other->postNotificationName(name); // may already be on its way when the center goes
    other.reset();
    EXPECT_TRUE(service->observedNames(otherIdentity).isEmpty());
    center.postNotificationName(name);
    ASSERT_TRUE(waitUntil([&] { return mine == 5; }));
    spinEventLoop(100ms);
    EXPECT_EQ(theirs, 3) << "a destroyed center delivers nothing";
}

INSTANTIATE_ON_BOTH_SERVICES(PLXDarwinNotificationCenterTest);

// Names that D-Bus cannot carry unchanged, and selectors the observer does not have, would make
// registrations that never fire: they stop the process at once, naming the fault.
TEST(PLXDarwinNotificationCenterDeathTest, UndeliverableNamesAndMissingMethodsStopTheProcess) {
    LocalDarwinNotifyCenter session;
    PLXDarwinNotificationCenter center(&session);
    NotificationRecorder recorder;
    const QChar high(0xD83D), low(0xDE42); // the two halves of U+1F642
    const struct {
        const char* what;
        QString name;
        const char* problem;
    } refused[] = {
        {"empty", QString(), "it is empty"},
        {"NUL", QStringLiteral("a") + QChar(0) + QStringLiteral("b"), "NUL character at 1"},
        {"high half alone", QStringLiteral("a") + high + QStringLiteral("b"), "unpaired surrogate at 1"},
        {"high half last", QStringLiteral("ab") + high, "unpaired surrogate at 2"},
        {"halves swapped", QString(low) + high, "unpaired surrogate at 0"},
        {"one unit too long", QString(PLXDarwinNotificationCenter::maximumNameLength + 1, 'x'),
         "65537 UTF-16 units long, more than 65536"},
    };
    for (const auto& c : refused) {
        SCOPED_TRACE(c.what);
        const std::string observe =
            std::string("Fatal error: PLXDarwinNotificationCenter: cannot observe .*") + c.problem;
        EXPECT_DEATH(center.addObserverForName(c.name, nullptr, [](const auto&) {}), observe);
        EXPECT_DEATH(center.addObserver(&recorder, "first", c.name), observe);
        EXPECT_DEATH(center.postNotificationName(c.name), std::string("cannot post .*") + c.problem);
    }
    EXPECT_DEATH(center.addObserver(&recorder, "frist", "name"),
                 "Fatal error: PLXDarwinNotificationCenter: NotificationRecorder has no slot or invokable "
                 "method frist\\(platform::Notification\\) or frist\\(\\)");
    EXPECT_DEATH(center.addObserver(&recorder, nullptr, "name"), "has no slot or invokable method");
}

} // namespace
