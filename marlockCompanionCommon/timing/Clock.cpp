#include "marlockCompanionCommon/timing/Clock.h"

#include "marlockCommon/TimeSource.h"
#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/SystemClockMonitor.h"
#include "marlockCompanionCommon/timing/RunLoopTimer.h"

#include <cmath>

Clock::Clock(double period, TickHandler onTick, QObject* parent)
    : QObject(parent)
    , period_(period)
    , onTick_(std::move(onTick)) {
    // No period of this kind has boundaries to tick on: zero never ticks, a negative one puts
    // every boundary in the past and ticks without pause on the main thread.
    if (!(std::isfinite(period) && period > 0))
        platform::fatalError(QStringLiteral("A Clock needs a period of a finite number of seconds greater "
                                            "than zero, not %1")
                                 .arg(period));
}

Clock::Clock()
    : period_(0) {
    platform::fatalError(
        QStringLiteral("Use of unimplemented initializer 'init()' for class 'marlockCompanionCommon.Clock'"));
}

Clock::~Clock() = default;

void Clock::start() {
    if (started_)
        return;
    // Without the monitor the clock still ticks; it just cannot re-align after a clock change.
    (void)platform::SystemClockMonitor::startShared();
    platform::NotificationCenter::defaultCenter().addObserver(this, "significantTimeChangeDidOccur",
                                                              platform::SystemClockDidChangeNotification);
    scheduleNextFire();
    started_ = true;
}

void Clock::stop() {
    if (!started_)
        return;
    platform::NotificationCenter::defaultCenter().removeObserver(this,
                                                                 platform::SystemClockDidChangeNotification);
    if (refreshTimer_)
        refreshTimer_->invalidate();
    started_ = false;
}

double Clock::scheduleNextFire() {
    const double now = timeIntervalSince1970();
    const double multiple = std::floor(now / period_ + 1.0);
    double next = multiple * period_;
    // For some periods the division rounds a time just on a boundary down below it, and the
    // product lands back on now; the boundary wanted is the one strictly after now.
    if (next <= now)
        next = (multiple + 1.0) * period_;
    auto timer = RunLoopTimer::create(next, this, "timerDidFire");
    refreshTimer_ = timer;
    timer->schedule();
    return now;
}

void Clock::timerDidFire(RunLoopTimer*) {
    const double now = scheduleNextFire();
    if (onTick_)
        onTick_(now);
}

void Clock::significantTimeChangeDidOccur() {
    if (refreshTimer_)
        refreshTimer_->invalidate();
    scheduleNextFire();
}
