#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "marlockCompanionCommon/platform/runtime/internal/TimerWait.h"

#include "tests/support/TestSupport.h"

#include <QDeadlineTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <memory>
#include <mutex>
#include <numeric>
#include <thread>
#include <vector>

using namespace platform;
using testsupport::waitUntil;

namespace {

class Listener : public QObject {
    Q_OBJECT
public:
    QStringList heard;
    int bareCalls = 0;

public slots:
    void didChange(platform::Notification n) { heard << n.name + ":" + n.userInfo.value("k").toString(); }
    void somethingHappened() { ++bareCalls; }
};

} // namespace

TEST(NotificationCenterTest, BlocksHearTheirNameAndSenderOnly) {
    NotificationCenter center;
    QObject sender, otherSender;
    QStringList heard;
    auto byName =
        center.addObserver("A", nullptr, nullptr, [&](const Notification& n) { heard << "name:" + n.name; });
    auto bySender = center.addObserver("A", &sender, nullptr, [&](const Notification& n) {
        EXPECT_EQ(n.object.data(), &sender);
        heard << "sender:" + n.userInfo.value("k").toString();
    });
    auto everything =
        center.addObserver({}, nullptr, nullptr, [&](const Notification& n) { heard << "all:" + n.name; });

    center.post("A", &sender, {{"k", "v"}});
    center.post("A", &otherSender);
    center.post("B");
    EXPECT_EQ(heard, (QStringList{"name:A", "sender:v", "all:A", "name:A", "all:A", "all:B"}));

    heard.clear();
    center.removeObserver(byName);
    center.removeObserver(everything);
    center.post("A", &sender, {{"k", "w"}});
    EXPECT_EQ(heard, (QStringList{"sender:w"}));
    center.removeObserver(bySender);
    center.removeObserver(bySender); // twice is harmless
    center.post("A", &sender);
    EXPECT_EQ(heard.size(), 1);
}

TEST(NotificationCenterTest, BlockWithQueueRunsOnThatQueueLater) {
    NotificationCenter center;
    std::atomic<bool> onMain{false};
    int calls = 0;
    auto token = center.addObserver("A", nullptr, OperationQueue::mainQueue(), [&](const Notification& n) {
        onMain = isMainThread();
        EXPECT_EQ(n.name, "A");
        ++calls;
    });
    std::thread([&] { center.post("A"); }).join();
    EXPECT_EQ(calls, 0) << "queued, not run on the posting thread";
    ASSERT_TRUE(waitUntil([&] { return calls == 1; }));
    EXPECT_TRUE(onMain);
    center.removeObserver(token);
}

TEST(NotificationCenterTest, TargetMethodsAreInvokedSynchronouslyAndHeldWeakly) {
    NotificationCenter center;
    auto listener = std::make_unique<Listener>();
    ASSERT_TRUE(center.addObserver(listener.get(), "didChange", "A"));
    ASSERT_TRUE(center.addObserver(listener.get(), "somethingHappened", "A"));
    EXPECT_FALSE(center.addObserver(listener.get(), "noSuchMethod", "A"));

    center.post("A", nullptr, {{"k", "1"}});
    EXPECT_EQ(listener->heard, (QStringList{"A:1"}));
    EXPECT_EQ(listener->bareCalls, 1);

    // Removal by name keeps the other registrations.
    center.removeObserver(listener.get(), "B");
    center.post("A");
    EXPECT_EQ(listener->bareCalls, 2);
    center.removeObserver(listener.get(), "A");
    center.post("A");
    EXPECT_EQ(listener->bareCalls, 2);

    // A destroyed target is never called, and nobody had to remove it.
    ASSERT_TRUE(center.addObserver(listener.get(), "somethingHappened", "A"));
    listener.reset();
    center.post("A"); // would crash (ASan: use after free) if the target were held strongly
}

TEST(NotificationCenterTest, ObserversMayPostAndRemoveDuringDelivery) {
    NotificationCenter center;
    QStringList heard;
    NotificationCenter::ObserverToken second;
    auto first = center.addObserver("A", nullptr, nullptr, [&](const Notification&) {
        heard << "first";
        center.removeObserver(second); // removed before its turn: it must not run
        center.post("B");
    });
    second = center.addObserver("A", nullptr, nullptr, [&](const Notification&) { heard << "second"; });
    auto onB = center.addObserver("B", nullptr, nullptr, [&](const Notification&) { heard << "B"; });
    center.post("A");
    EXPECT_EQ(heard, (QStringList{"first", "B"}));
    center.removeObserver(first);
    center.removeObserver(onB);
}

TEST(NotificationCenterTest, ConcurrentRegistrationPostingAndRemovalLoseNothing) {
    NotificationCenter center;
    constexpr int threads = 4, rounds = 300;
    std::atomic<int> delivered{0};
    std::vector<std::thread> workers;
    std::vector<std::vector<NotificationCenter::ObserverToken>> kept(threads);
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            const QString name = QStringLiteral("N%1").arg(t);
            for (int i = 0; i < rounds; ++i) {
                auto token =
                    center.addObserver(name, nullptr, nullptr, [&](const Notification&) { ++delivered; });
                if (i % 2 == 0)
                    kept[static_cast<size_t>(t)].push_back(token);
                else
                    center.removeObserver(token);
                center.post(QStringLiteral("N%1").arg((t + 1) % threads));
            }
        });
    }
    for (auto& w : workers)
        w.join();
    // Every kept registration is still there: one post per name reaches exactly the kept ones.
    delivered = 0;
    for (int t = 0; t < threads; ++t)
        center.post(QStringLiteral("N%1").arg(t));
    EXPECT_EQ(delivered.load(), threads * rounds / 2);
}

TEST(OperationQueueTest, SerialQueueRunsItemsInOrderOffTheMainThread) {
    OperationQueue queue(1, QStringLiteral("serial"));
    std::mutex mutex;
    std::vector<int> order;
    std::atomic<bool> ranOnMain{false};
    for (int i = 0; i < 200; ++i)
        queue.addOperation([&, i] {
            if (isMainThread())
                ranOnMain = true;
            std::lock_guard lock(mutex);
            order.push_back(i);
        });
    queue.waitUntilAllOperationsAreFinished();
    std::vector<int> expected(200);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
    EXPECT_FALSE(ranOnMain);
    EXPECT_FALSE(queue.isMainQueue());
}

// Registrations keep queues they do not own through a weak reference, which must stop handing
// items over once the queue is being destroyed instead of reaching freed memory (ASan).
TEST(OperationQueueTest, WeakReferenceHandsItemsOverOnlyWhileTheQueueLives) {
    auto ran = std::make_shared<std::atomic<int>>(0);
    auto queue = std::make_unique<OperationQueue>(1);
    const WeakOperationQueue weak(queue.get());
    NotificationCenter center;
    auto token = center.addObserver("A", nullptr, queue.get(), [ran](const Notification&) { ++*ran; });
    EXPECT_TRUE(weak.addOperation([ran] { ++*ran; }));
    center.post("A");
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(*ran, 2);

    // Another thread keeps adding while this one destroys the queue: whatever got in has run
    // when the destructor returns, and nothing gets in afterwards.
    std::atomic<int> accepted = 0;
    std::thread adder([&] {
        while (weak.addOperation([ran] { ++*ran; }))
            ++accepted;
    });
    while (accepted < 100)
        std::this_thread::yield();
    queue.reset();
    const int ranWhenDestroyed = *ran;
    adder.join();
    EXPECT_EQ(ranWhenDestroyed, 2 + accepted);
    EXPECT_FALSE(weak.addOperation([ran] { ++*ran; }));
    center.post("A");
    EXPECT_EQ(*ran, ranWhenDestroyed);
    EXPECT_FALSE(WeakOperationQueue().addOperation([] {}));
    center.removeObserver(token);
}

TEST(OperationQueueTest, MainQueueRunsLaterOnTheMainThreadInOrder) {
    std::vector<int> order;
    OperationQueue::mainQueue()->addOperation([&] { order.push_back(1); });
    dispatchAsyncMain([&] { order.push_back(2); });
    EXPECT_TRUE(order.empty()) << "never synchronously";
    EXPECT_TRUE(OperationQueue::mainQueue()->isMainQueue());

    // Work added from another thread lands on the main thread too.
    std::atomic<bool> onMain{false};
    std::thread([&] {
        OperationQueue::mainQueue()->addOperation([&] {
            onMain = isMainThread();
            order.push_back(3);
        });
    }).join();
    ASSERT_TRUE(waitUntil([&] { return order.size() == 3; }));
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_TRUE(onMain);
}

// Deadline order and never running synchronously: timing/DelayTests.cpp, through delay().
TEST(OperationQueueTest, DispatchAfterWaitsOutDelaysLongerThanOneTimerTakes) {
    constexpr qint64 day = 86'400'000'000'000;
    const qint64 cap = internal::maximumTimerWaitMs;
    const struct {
        qint64 leftNs, capMs, waitMs;
    } cases[] = {{1, cap, 1},
                 {1'000'000, cap, 1},
                 {1'000'001, cap, 2},                                     // never early
                 {30 * day, cap, cap},                                    // once narrowed below zero
                 {(qint64(1) << 32) * 1'000'000 + 100'000'000, cap, cap}, // once narrowed to 100 ms
                 {std::numeric_limits<qint64>::max(), cap, cap},
                 {40'000'000, 3, 3}};
    for (const auto& c : cases)
        EXPECT_EQ(internal::timerWaitMs(c.leftNs, c.capMs), c.waitMs) << c.leftNs << " capped at " << c.capMs;

    // Waits of 3 ms at most add up to the delay: the work neither runs after the first nor never.
    const QDeadlineTimer delay(40, Qt::PreciseTimer);
    bool ranAfterTheDelay = false, ran = false;
    internal::dispatchAfterMain(
        40'000'000,
        [&] {
            ranAfterTheDelay = delay.hasExpired();
            ran = true;
        },
        3);
    ASSERT_TRUE(waitUntil([&] { return ran; }));
    EXPECT_TRUE(ranAfterTheDelay);

    // What a narrowed wait made of 2^32 ms + 100 ms: it must not overtake a 300 ms one.
    auto longOneRan = std::make_shared<bool>(false);
    bool shortOneRan = false;
    dispatchAfterMain((qint64(1) << 32) * 1'000'000 + 100'000'000, [longOneRan] { *longOneRan = true; });
    dispatchAfterMain(300'000'000, [&] { shortOneRan = true; });
    ASSERT_TRUE(waitUntil([&] { return shortOneRan; }));
    EXPECT_FALSE(*longOneRan);
}

TEST(OperationQueueDeathTest, WaitingOnTheMainQueueIsAProgrammingError) {
    EXPECT_DEATH(OperationQueue::mainQueue()->waitUntilAllOperationsAreFinished(),
                 "not available on the main queue");
}

#include "OperationQueueAndNotificationCenterTest.moc"
