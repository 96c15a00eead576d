#include "marlockCompanionCommon/timing/Delay.h"

#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

using testsupport::waitUntil;

namespace {

TEST(Delay, RoundsTowardZeroToWholeNanoseconds) {
    const std::pair<double, int64_t> cases[] = {
        {1.0000000009, 1'000'000'000},
        {0, 0},
        {-1, -1'000'000'000},
        {2.5e-9, 2},
        {-2.5e-9, -2},
        {0.25, 250'000'000},
        {9e9, 9'000'000'000'000'000'000}, // about 285 years still fits
    };
    for (const auto& [seconds, nanoseconds] : cases)
        EXPECT_EQ(delayNanoseconds(seconds), nanoseconds) << seconds;
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

    std::atomic<int> onMain{0}, elsewhere{0};
    std::thread([&] {
        delay(0.001, [&] { (platform::isMainThread() ? onMain : elsewhere).fetch_add(1); });
    }).join();
    ASSERT_TRUE(waitUntil([&] { return onMain + elsewhere == 1; }));
    EXPECT_EQ(onMain, 1) << "scheduled from another thread, run on the main one";
}

TEST(DelayDeathTest, OutOfRangeDelaysStopTheProcess) {
    // The last is exactly 2^63 ns, already out of range.
    const std::pair<double, const char*> cases[] = {
        {INFINITY, "infinite or NaN"},  {-INFINITY, "infinite or NaN"},
        {NAN, "infinite or NaN"},       {1e10, "greater than Int64.max"},
        {-1e10, "less than Int64.min"}, {9'223'372'036.854775808, "greater than Int64.max"}};
    for (const auto& [seconds, message] : cases) {
        SCOPED_TRACE(seconds);
        EXPECT_DEATH(delay(seconds, [] {}), message);
    }
}

} // namespace
