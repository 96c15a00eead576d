#include "marlockCompanionCommon/timing/Delay.h"

#include "marlockCompanionCommon/platform/OperationQueue.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <thread>
#include <vector>

using testsupport::waitUntil;

namespace {

TEST(Delay, RoundsTowardZeroToWholeNanoseconds) {
    EXPECT_EQ(delayNanoseconds(1.0000000009), 1'000'000'000);
    EXPECT_EQ(delayNanoseconds(0), 0);
    EXPECT_EQ(delayNanoseconds(-1), -1'000'000'000);
    EXPECT_EQ(delayNanoseconds(2.5e-9), 2);
    EXPECT_EQ(delayNanoseconds(-2.5e-9), -2);
    EXPECT_EQ(delayNanoseconds(0.25), 250'000'000);
    EXPECT_EQ(delayNanoseconds(9e9), 9'000'000'000'000'000'000) << "about 285 years still fits";
}

TEST(Delay, RunsOnTheMainThreadNeverSynchronouslyInDeadlineOrder) {
    std::vector<char> order;
    delay(0.3, [&] { order.push_back('a'); });
    delay(0.03, [&] { order.push_back('b'); });
    delay(0, [&] { order.push_back('c'); });
    delay(-1, [&] { order.push_back('d'); });
    EXPECT_TRUE(order.empty()) << "nothing runs inside delay()";
    ASSERT_TRUE(waitUntil([&] { return order.size() == 4; }));
    EXPECT_EQ(order, (std::vector<char>{'c', 'd', 'b', 'a'}));
}

TEST(Delay, ClosuresScheduledFromAnotherThreadRunOnTheMainThread) {
    std::atomic<int> onMain{0}, elsewhere{0};
    std::thread([&] {
        delay(0.001, [&] { (platform::isMainThread() ? onMain : elsewhere).fetch_add(1); });
    }).join();
    ASSERT_TRUE(waitUntil([&] { return onMain + elsewhere == 1; }));
    EXPECT_EQ(onMain, 1);
}

TEST(DelayDeathTest, OutOfRangeDelaysStopTheProcess) {
    EXPECT_DEATH(delay(std::numeric_limits<double>::infinity(), [] {}), "infinite or NaN");
    EXPECT_DEATH(delay(-std::numeric_limits<double>::infinity(), [] {}), "infinite or NaN");
    EXPECT_DEATH(delay(std::nan(""), [] {}), "infinite or NaN");
    EXPECT_DEATH(delay(1e10, [] {}), "greater than Int64.max");
    EXPECT_DEATH(delay(-1e10, [] {}), "less than Int64.min");
    // Exactly 2^63 ns is already out of range.
    EXPECT_DEATH(delayNanoseconds(9'223'372'036.854775808), "greater than Int64.max");
}

} // namespace
