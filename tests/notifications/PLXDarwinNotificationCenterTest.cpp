// The center's behaviour, checked against the in-memory service and against the session bus.
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/OperationQueue.h"
#include "tests/notifications/NotificationRecorder.h"
#include "tests/notifications/NotificationTestSupport.h"
#include "tests/support/TestSupport.h"

#include <QThread>

#include <gtest/gtest.h>

#include <atomic>

using namespace notificationtests;
using namespace std::chrono_literals;

namespace {

class PLXDarwinNotificationCenterTest : public ::testing::TestWithParam<Service> {
protected:
    ServiceHolder service{GetParam()};
    PLXDarwinNotificationCenter center{service.get()};
};

TEST_P(PLXDarwinNotificationCenterTest, BlockObserverHearsEachPostByNameOnlyOnTheMainQueue) {
    const QString name = uniqueName("block");
    QList<platform::Notification> heard;
    bool onMain = true;
    auto token = center.addObserverForName(name, nullptr, [&](const platform::Notification& n) {
        onMain = onMain && platform::isMainThread();
        heard << n;
    });
    ASSERT_TRUE(token);

    QObject sender;
    center.postNotification(platform::Notification{name, &sender, {{"key", 1}}});
    center.postNotificationName(name);

    ASSERT_TRUE(testsupport::waitUntil([&] { return heard.size() == 2; }));
    testsupport::spinEventLoop(100ms);
    EXPECT_EQ(heard.size(), 2) << "one delivery per post";
    for (const platform::Notification& n : heard) {
        EXPECT_EQ(n.name, name);
        EXPECT_EQ(n.object, nullptr);
        EXPECT_TRUE(n.userInfo.isEmpty());
    }
    EXPECT_TRUE(onMain);
}

TEST_P(PLXDarwinNotificationCenterTest, BlockObserverRunsOnTheQueueItNamed) {
    const QString name = uniqueName("queue");
    platform::OperationQueue worker(1, QStringLiteral("worker"));
    std::atomic<int> calls = 0;
    std::atomic<bool> offMain = true;
    auto token = center.addObserverForName(name, &worker, [&](const platform::Notification&) {
        offMain = offMain && !platform::isMainThread();
        ++calls;
    });
    center.postNotificationName(name);
    ASSERT_TRUE(testsupport::waitUntil([&] { return calls == 1; }));
    EXPECT_TRUE(offMain);
    center.removeObserver(token.get());
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
    ASSERT_TRUE(testsupport::waitUntil([&] { return recorder.calls.size() == 3; }));
    EXPECT_EQ(recorder.calls, QStringList({"first:" + name, "second:" + name, "bare:"}));
    EXPECT_TRUE(recorder.allOnMainThread);
}

TEST_P(PLXDarwinNotificationCenterTest, PostWithoutObserversRegistersNothing) {
    const QString name = uniqueName("nobody");
    center.postNotificationName(name);
    testsupport::spinEventLoop(50ms);
    EXPECT_TRUE(center.registeredNotificationNames().isEmpty());
    EXPECT_TRUE(service.get()->observedNames(&center).isEmpty());
}

TEST_P(PLXDarwinNotificationCenterTest, RemoveObserverWithdrawsEveryNameFromTheService) {
    const QString a = uniqueName("a"), b = uniqueName("b");
    NotificationRecorder recorder;
    center.addObserver(&recorder, "first", a);
    center.addObserver(&recorder, "first", b);
    QStringList both{a, b};
    both.sort();
    EXPECT_EQ(center.registeredNotificationNames(), both);
    EXPECT_EQ(service.get()->observedNames(&center), both);

    center.removeObserver(&recorder);
    EXPECT_TRUE(center.registeredNotificationNames().isEmpty());
    EXPECT_TRUE(service.get()->observedNames(&center).isEmpty());

    NotificationRecorder witness; // another center on the same service still hears posts
    PLXDarwinNotificationCenter other(service.get());
    other.addObserver(&witness, "first", a);
    center.postNotificationName(a);
    ASSERT_TRUE(testsupport::waitUntil([&] { return witness.calls.size() == 1; }));
    testsupport::spinEventLoop(50ms);
    EXPECT_TRUE(recorder.calls.isEmpty());
}

TEST_P(PLXDarwinNotificationCenterTest, RemoveObserverForOneNameKeepsTheOthers) {
    const QString a = uniqueName("a"), b = uniqueName("b");
    NotificationRecorder recorder;
    center.addObserver(&recorder, "first", a);
    center.addObserver(&recorder, "first", b);

    center.removeObserver(&recorder, a);
    EXPECT_EQ(center.registeredNotificationNames(), QStringList{b});
    center.postNotificationName(a);
    center.postNotificationName(b);
    ASSERT_TRUE(testsupport::waitUntil([&] { return !recorder.calls.isEmpty(); }));
    testsupport::spinEventLoop(50ms);
    EXPECT_EQ(recorder.calls, QStringList{"first:" + b});

    center.removeObserver(&recorder, std::nullopt); // no name: every name
    EXPECT_TRUE(center.registeredNotificationNames().isEmpty());
    center.removeObserver(nullptr, b);                     // no observer: nothing happens
    center.removeObserver(&recorder, uniqueName("never")); // unknown name: nothing happens
    EXPECT_TRUE(service.get()->observedNames(&center).isEmpty());
}

TEST_P(PLXDarwinNotificationCenterTest, DroppedTokenKeepsItsBlockFiringUntilRemoved) {
    const QString name = uniqueName("token");
    int calls = 0;
    QPointer<QObject> watch;
    QObject* raw = nullptr;
    {
        auto token =
            center.addObserverForName(name, nullptr, [&](const platform::Notification&) { ++calls; });
        watch = token.get();
        raw = token.get();
    }
    EXPECT_FALSE(watch.isNull()) << "the center keeps the token";
    EXPECT_EQ(center.retainedObserverCount(), 1);
    center.postNotificationName(name);
    ASSERT_TRUE(testsupport::waitUntil([&] { return calls == 1; }));

    center.removeObserver(raw, name);
    EXPECT_TRUE(watch.isNull()) << "removal ends the center's hold";
    EXPECT_EQ(center.retainedObserverCount(), 0);
    center.postNotificationName(name);
    testsupport::spinEventLoop(100ms);
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
    testsupport::spinEventLoop(50ms);

    // The table emptied by a death keeps its registration; the next observer simply joins.
    EXPECT_EQ(center.registeredNotificationNames(), QStringList{name});
    NotificationRecorder next;
    center.addObserver(&next, "first", name);
    center.postNotificationName(name);
    ASSERT_TRUE(testsupport::waitUntil([&] { return next.calls.size() == 1; }));
    testsupport::spinEventLoop(50ms);
    EXPECT_EQ(next.calls.size(), 1);
}

TEST_P(PLXDarwinNotificationCenterTest, EveryCenterOnTheServiceHearsAPostIncludingThePoster) {
    const QString name = uniqueName("shared");
    PLXDarwinNotificationCenter other(service.get());
    int mine = 0, theirs = 0;
    auto t1 = center.addObserverForName(name, nullptr, [&](const platform::Notification&) { ++mine; });
    auto t2 = other.addObserverForName(name, nullptr, [&](const platform::Notification&) { ++theirs; });
    for (int i = 0; i < 3; ++i)
        center.postNotificationName(name);
    ASSERT_TRUE(testsupport::waitUntil([&] { return mine == 3 && theirs == 3; }));
    testsupport::spinEventLoop(100ms);
    EXPECT_EQ(mine, 3);
    EXPECT_EQ(theirs, 3);
}

TEST_P(PLXDarwinNotificationCenterTest, DestroyedCenterWithdrawsItsRegistrations) {
    const QString name = uniqueName("gone");
    auto doomed = std::make_unique<PLXDarwinNotificationCenter>(service.get());
    const void* identity = doomed.get();
    auto token = doomed->addObserverForName(name, nullptr, [](const platform::Notification&) {
        ADD_FAILURE() << "a destroyed center delivers nothing";
    });
    doomed->postNotificationName(name); // may already be on its way when the center goes
    doomed.reset();
    EXPECT_TRUE(service.get()->observedNames(identity).isEmpty());
    center.postNotificationName(name);
    testsupport::spinEventLoop(100ms);
}

std::string paramName(const ::testing::TestParamInfo<Service>& param) {
    return serviceName(param.param);
}

INSTANTIATE_TEST_SUITE_P(Services, PLXDarwinNotificationCenterTest,
                         ::testing::Values(Service::InMemory, Service::SessionBus), paramName);

} // namespace
