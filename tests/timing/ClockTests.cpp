#include "marlockCompanionCommon/timing/Clock.h"

#include "marlockCommon/TimeSource.h"
#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/SystemClockMonitor.h"
#include "marlockCompanionCommon/timing/RunLoopTimer.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <iomanip>
#include <vector>

using namespace std::chrono_literals;
using testsupport::spinEventLoop;
using testsupport::waitUntil;

namespace {

// Counts the re-arms a clock makes, through the same overridable entry point its timer and the
// clock-change handler use.
class CountingClock : public Clock {
public:
    using Clock::Clock;
    double scheduleNextFire() override {
        ++schedules;
        return Clock::scheduleNextFire();
    }
    int schedules = 0;
};

// Replaces the process's wall clock with one the test sets (counting its reads), and records the
// ticks a clock delivers with the time read at each.
class ClockTest : public ::testing::Test {
protected:
    ClockTest() {
        setTimeIntervalSince1970Source([this] {
            ++reads;
            return now.load();
        });
    }
    ~ClockTest() override { setTimeIntervalSince1970Source({}); }

    std::atomic<double> now{0};
    std::atomic<int> reads{0};
    std::vector<double> ticks;
    std::function<void(double)> record = [this](double now) { ticks.push_back(now); };
};

void postClockChange() {
    platform::NotificationCenter::defaultCenter().post(platform::SystemClockDidChangeNotification);
}

TEST_F(ClockTest, ArmsTheFirstMultipleOfThePeriodStrictlyAfterNow) {
    // NAN: no exact boundary is asserted. 1700000000.9399998 is the 0.06 multiple
    // 28333333349 × 0.06, but divided by 0.06 it reads 28333333348.999996, so the plain formula
    // gives back now itself.
    const struct {
        double period, now, next;
    } cases[] = {{30, 1'000'000'005.2, 1'000'000'020.0},
                 {30, 1'000'000'020.0, 1'000'000'050.0}, // on a boundary, the next one
                 {1, 12.3, 13.0},
                 {1, 13.0, 14.0},
                 {0.06, 1700000000.9399998, NAN}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::setprecision(17) << c.period << " at " << c.now);
        now = c.now;
        Clock clock(c.period);
        EXPECT_EQ(clock.scheduleNextFire(), c.now) << "returns the time it read, not the boundary";
        const double next = clock.refreshTimer()->fireDate();
        if (!std::isnan(c.next)) {
            EXPECT_EQ(next, c.next);
        }
        EXPECT_GT(next, c.now);
        EXPECT_LT(next, c.now + c.period + 1e-6);
        EXPECT_TRUE(clock.refreshTimer()->isScheduled()) << "armed even on a stopped clock";
        EXPECT_FALSE(clock.started());
        clock.refreshTimer()->invalidate();
    }
}

TEST_F(ClockTest, StartAndStopAreIdempotentAndAClockChangeRealignsWithoutATick) {
    now = 1'000'000'005.2;
    CountingClock clock(30, record);
    clock.start();
    const auto armed = clock.refreshTimer();
    clock.start();
    EXPECT_TRUE(clock.started());
    EXPECT_EQ(clock.schedules, 1);
    EXPECT_EQ(clock.refreshTimer(), armed) << "a second start arms nothing";
    EXPECT_EQ(armed->fireDate(), 1'000'000'020.0);

    // The system clock is set back an hour.
    now = 1'000'000'005.2 - 3600;
    postClockChange();
    EXPECT_EQ(clock.schedules, 2) << "registered once for clock changes";
    EXPECT_FALSE(armed->isValid()) << "the pending timer is invalidated first";
    ASSERT_NE(clock.refreshTimer(), armed);
    EXPECT_EQ(clock.refreshTimer()->fireDate(), 999'996'420.0);
    EXPECT_TRUE(clock.refreshTimer()->isScheduled());
    spinEventLoop(50ms);

    clock.stop();
    EXPECT_FALSE(clock.started());
    ASSERT_NE(clock.refreshTimer(), nullptr) << "the reference is kept";
    EXPECT_FALSE(clock.refreshTimer()->isValid());
    clock.stop();
    EXPECT_FALSE(clock.started());

    postClockChange();
    EXPECT_EQ(clock.schedules, 2) << "a stopped clock no longer hears clock changes";
    EXPECT_TRUE(ticks.empty()) << "neither start nor a clock change ticks";
}

TEST_F(ClockTest, TicksOnceAfterEachBoundaryWithTheTimeReadThen) {
    now = 100.0;
    Clock clock(0.05, record);
    clock.start();
    const auto armed = clock.refreshTimer();
    EXPECT_NEAR(armed->fireDate(), 100.05, 1e-9);

    // The event loop's timer runs out while the wall clock reads just short of the boundary.
    now = 100.0499;
    const int readsBefore = reads;
    ASSERT_TRUE(waitUntil([&] { return reads >= readsBefore + 3; })) << "the timer expired and re-checked";
    EXPECT_TRUE(ticks.empty()) << "no tick before the boundary";
    EXPECT_EQ(clock.refreshTimer(), armed) << "not re-armed for the same boundary";
    EXPECT_TRUE(armed->isValid());
    EXPECT_TRUE(armed->isScheduled());

    now = 100.0501;
    ASSERT_TRUE(waitUntil([&] { return !ticks.empty(); }));
    EXPECT_EQ(ticks, std::vector<double>{100.0501});
    EXPECT_NEAR(clock.refreshTimer()->fireDate(), 100.10, 1e-9) << "re-armed from the time read";

    // The wall clock stands still before the next boundary: the timer expires and waits on.
    spinEventLoop(150ms);
    EXPECT_EQ(ticks.size(), 1u) << "one tick per boundary";

    now = 100.12;
    ASSERT_TRUE(waitUntil([&] { return ticks.size() == 2; }));
    EXPECT_EQ(ticks.back(), 100.12);
    clock.stop();

    // Without a closure, firings still re-arm.
    Clock silent(0.05);
    silent.start();
    now = 100.21;
    ASSERT_TRUE(waitUntil([&] { return silent.refreshTimer()->fireDate() > 100.24; }));
    EXPECT_TRUE(silent.refreshTimer()->isScheduled());
    silent.stop();
}

TEST_F(ClockTest, ATimerArmedByHandOnAStartedClockStillFires) {
    now = 400.0;
    Clock clock(0.05, record);
    clock.start();
    const auto first = clock.refreshTimer();
    clock.scheduleNextFire();
    EXPECT_NE(clock.refreshTimer(), first);
    EXPECT_TRUE(first->isValid()) << "released, not invalidated";
    EXPECT_TRUE(first->isScheduled());

    now = 400.06;
    ASSERT_TRUE(waitUntil([&] { return ticks.size() == 2; })) << "both timers tick at the boundary";
    // Each firing armed a timer of its own, and only the one held is invalidated by stop().
    clock.stop();
}

TEST_F(ClockTest, ADestroyedClockIsNeitherTickedNorRealigned) {
    now = 500.0;
    auto clock = std::make_unique<Clock>(0.05, record);
    clock->start();
    const auto armed = clock->refreshTimer();
    clock.reset();

    postClockChange();
    EXPECT_TRUE(armed->isValid()) << "no handler ran for the destroyed clock";
    now = 500.06;
    ASSERT_TRUE(waitUntil([&] { return !armed->isValid(); })) << "the orphaned timer still expires";
    EXPECT_TRUE(ticks.empty());
}

TEST(ClockDeathTest, HasNoInitialiserWithoutAPeriodAndRefusesPeriodsWithoutBoundaries) {
    EXPECT_DEATH(Clock::staticMetaObject.newInstance(),
                 "Fatal error: Use of unimplemented initializer 'init\\(\\)' for class "
                 "'marlockCompanionCommon\\.Clock'");
    for (const double period : {0.0, -0.0, -30.0, double(NAN), double(INFINITY), -double(INFINITY)}) {
        SCOPED_TRACE(period);
        EXPECT_DEATH(Clock clock(period),
                     "Fatal error: A Clock needs a period of a finite number of seconds");
    }
}

} // namespace
