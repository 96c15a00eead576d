#include "marlockCompanionCommon/platform/OperationQueue.h"

#include "tests/support/TestSupport.h"

#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <numeric>
#include <vector>

using namespace platform;
using testsupport::waitUntil;

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
