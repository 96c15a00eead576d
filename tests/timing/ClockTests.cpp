#include "marlockCompanionCommon/timing/Clock.h"

#include "marlockCompanionCommon/platform/NotificationCenter.h"
#include "marlockCompanionCommon/platform/SystemClockMonitor.h"
#include "marlockCompanionCommon/timing/RunLoopTimer.h"
#include "tests/support/TestSupport.h"
#include "tests/timing/FakeTime.h"

#include <gtest/gtest.h>

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

void postClockChange() {
    platform::NotificationCenter::defaultCenter().post(platform::SystemClockDidChangeNotification);
}

TEST(Clock, ArmsTheFirstMultipleOfThePeriodStrictlyAfterNow) {
    FakeTime time(1'000'000'005.2);
    Clock clock(30);
    EXPECT_EQ(clock.scheduleNextFire(), 1'000'000'005.2) << "returns the time it read, not the boundary";
    EXPECT_EQ(clock.refreshTimer()->fireDate(), 1'000'000'020.0);
    EXPECT_TRUE(clock.refreshTimer()->isScheduled()) << "armed even on a stopped clock";
    EXPECT_FALSE(clock.started());
    clock.refreshTimer()->invalidate();

    time.set(1'000'000'020.0);
    clock.scheduleNextFire();
    EXPECT_EQ(clock.refreshTimer()->fireDate(), 1'000'000'050.0) << "on a boundary, the next one";
    clock.refreshTimer()->invalidate();

    Clock everySecond(1);
    time.set(12.3);
    everySecond.scheduleNextFire();
    EXPECT_EQ(everySecond.refreshTimer()->fireDate(), 13.0);
    everySecond.refreshTimer()->invalidate();
    time.set(13.0);
    everySecond.scheduleNextFire();
    EXPECT_EQ(everySecond.refreshTimer()->fireDate(), 14.0);
    everySecond.refreshTimer()->invalidate();
}

TEST(Clock, NeverArmsForNowWhenTheDivisionRoundsDown) {
    // 1700000000.9399998 is the 0.06 multiple 28333333349 × 0.06, but divided by 0.06 it reads
    // 28333333348.999996, so the plain formula gives back now itself.
    const double now = 1700000000.9399998;
    FakeTime time(now);
    Clock clock(0.06);
    clock.scheduleNextFire();
    EXPECT_GT(clock.refreshTimer()->fireDate(), now);
    EXPECT_LT(clock.refreshTimer()->fireDate(), now + 0.06 + 1e-6);
    clock.refreshTimer()->invalidate();
}

TEST(Clock, StartAndStopAreIdempotentAndStopKeepsTheInvalidatedTimer) {
    FakeTime time(1'000'000'005.2);
    std::vector<double> ticks;
    CountingClock clock(30, [&](double now) { ticks.push_back(now); });

    clock.start();
    const auto armed = clock.refreshTimer();
    clock.start();
    EXPECT_TRUE(clock.started());
    EXPECT_EQ(clock.schedules, 1);
    EXPECT_EQ(clock.refreshTimer(), armed) << "a second start arms nothing";
    EXPECT_TRUE(ticks.empty()) << "start does not tick";

    postClockChange();
    EXPECT_EQ(clock.schedules, 2) << "registered once for clock changes";

    clock.stop();
    EXPECT_FALSE(clock.started());
    ASSERT_NE(clock.refreshTimer(), nullptr) << "the reference is kept";
    EXPECT_FALSE(clock.refreshTimer()->isValid());
    clock.stop();
    EXPECT_FALSE(clock.started());

    postClockChange();
    EXPECT_EQ(clock.schedules, 2) << "a stopped clock no longer hears clock changes";
    EXPECT_TRUE(ticks.empty());
}

TEST(Clock, TicksAfterEachBoundaryWithTheTimeReadThen) {
    FakeTime time(100.0);
    std::vector<double> ticks;
    Clock clock(0.05, [&](double now) { ticks.push_back(now); });
    clock.start();
    EXPECT_NEAR(clock.refreshTimer()->fireDate(), 100.05, 1e-9);

    time.set(100.06);
    ASSERT_TRUE(waitUntil([&] { return !ticks.empty(); }));
    EXPECT_EQ(ticks, std::vector<double>{100.06});
    EXPECT_NEAR(clock.refreshTimer()->fireDate(), 100.10, 1e-9) << "re-armed from the time read";

    // The wall clock stands still before the next boundary: the timer expires and waits on.
    spinEventLoop(150ms);
    EXPECT_EQ(ticks.size(), 1u);

    time.set(100.12);
    ASSERT_TRUE(waitUntil([&] { return ticks.size() == 2; }));
    EXPECT_EQ(ticks.back(), 100.12);
    clock.stop();
}

TEST(Clock, ATimerExpiringAHairEarlyWaitsForTheBoundaryAndTicksOnce) {
    FakeTime time(200.0);
    std::vector<double> ticks;
    Clock clock(0.05, [&](double now) { ticks.push_back(now); });
    clock.start();
    const auto armed = clock.refreshTimer();
    const double boundary = armed->fireDate();

    // The event loop's timer runs out while the wall clock reads just short of the boundary.
    time.set(boundary - 0.0001);
    const int readsBefore = time.reads();
    ASSERT_TRUE(waitUntil([&] { return time.reads() >= readsBefore + 3; }))
        << "the timer expired and re-checked";
    EXPECT_TRUE(ticks.empty()) << "no tick before the boundary";
    EXPECT_EQ(clock.refreshTimer(), armed) << "not re-armed for the same boundary";
    EXPECT_TRUE(armed->isValid());
    EXPECT_TRUE(armed->isScheduled());

    time.set(boundary + 0.0001);
    ASSERT_TRUE(waitUntil([&] { return !ticks.empty(); }));
    EXPECT_EQ(ticks.front(), boundary + 0.0001);
    EXPECT_NEAR(clock.refreshTimer()->fireDate(), boundary + 0.05, 1e-9);
    spinEventLoop(100ms);
    EXPECT_EQ(ticks.size(), 1u) << "one tick per boundary";
    clock.stop();
}

TEST(Clock, RealignsWithoutATickWhenTheSystemClockIsSetBack) {
    FakeTime time(1'000'000'005.2);
    std::vector<double> ticks;
    Clock clock(30, [&](double now) { ticks.push_back(now); });
    clock.start();
    const auto before = clock.refreshTimer();
    EXPECT_EQ(before->fireDate(), 1'000'000'020.0);

    time.set(1'000'000'005.2 - 3600);
    postClockChange();
    EXPECT_FALSE(before->isValid()) << "the pending timer is invalidated first";
    ASSERT_NE(clock.refreshTimer(), before);
    EXPECT_EQ(clock.refreshTimer()->fireDate(), 999'996'420.0);
    EXPECT_TRUE(clock.refreshTimer()->isScheduled());
    spinEventLoop(50ms);
    EXPECT_TRUE(ticks.empty()) << "the change itself is not a tick";
    clock.stop();
}

TEST(Clock, FiringsWithoutAClosureStillRearm) {
    FakeTime time(300.0);
    Clock clock(0.05);
    clock.start();
    time.set(300.06);
    ASSERT_TRUE(waitUntil([&] { return clock.refreshTimer()->fireDate() > 300.09; }));
    EXPECT_TRUE(clock.refreshTimer()->isScheduled());
    clock.stop();
}

TEST(Clock, ATimerArmedByHandOnAStartedClockStillFires) {
    FakeTime time(400.0);
    std::vector<double> ticks;
    Clock clock(0.05, [&](double now) { ticks.push_back(now); });
    clock.start();
    const auto first = clock.refreshTimer();
    clock.scheduleNextFire();
    EXPECT_NE(clock.refreshTimer(), first);
    EXPECT_TRUE(first->isValid()) << "released, not invalidated";
    EXPECT_TRUE(first->isScheduled());

    time.set(400.06);
    ASSERT_TRUE(waitUntil([&] { return ticks.size() == 2; })) << "both timers tick at the boundary";
    // Each firing armed a timer of its own, and only the one held is invalidated by stop().
    clock.stop();
}

TEST(Clock, ADestroyedClockIsNeitherTickedNorRealigned) {
    FakeTime time(500.0);
    int ticks = 0;
    auto clock = std::make_unique<Clock>(0.05, [&](double) { ++ticks; });
    clock->start();
    const auto armed = clock->refreshTimer();
    clock.reset();

    postClockChange();
    EXPECT_TRUE(armed->isValid()) << "no handler ran for the destroyed clock";
    time.set(500.06);
    ASSERT_TRUE(waitUntil([&] { return !armed->isValid(); })) << "the orphaned timer still expires";
    EXPECT_EQ(ticks, 0);
}

TEST(ClockDeathTest, HasNoInitialiserWithoutAPeriod) {
    EXPECT_DEATH(Clock::staticMetaObject.newInstance(),
                 "Fatal error: Use of unimplemented initializer 'init\\(\\)' for class "
                 "'marlockCompanionCommon\\.Clock'");
}

} // namespace
