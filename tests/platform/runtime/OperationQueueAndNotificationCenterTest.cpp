#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
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

TEST(OperationQueueTest, DispatchAfterRunsByDeadlineOrderAndNeverSynchronously) {
    std::vector<int> order;
    dispatchAfterMain(40'000'000, [&] { order.push_back(40); });
    dispatchAfterMain(0, [&] { order.push_back(0); });
    dispatchAfterMain(-1'000'000'000, [&] { order.push_back(-1); });
    dispatchAfterMain(10'000'000, [&] { order.push_back(10); });
    EXPECT_TRUE(order.empty());
    ASSERT_TRUE(waitUntil([&] { return order.size() == 4; }));
    // Past and zero deadlines run at the next pass, in the order they were added.
    EXPECT_EQ(order, (std::vector<int>{0, -1, 10, 40}));
}

TEST(OperationQueueDeathTest, WaitingOnTheMainQueueIsAProgrammingError) {
    EXPECT_DEATH(OperationQueue::mainQueue()->waitUntilAllOperationsAreFinished(),
                 "not available on the main queue");
}

#include "OperationQueueAndNotificationCenterTest.moc"
