#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QObject>

#include <functional>
#include <memory>

class RunLoopTimer;

// Wakes the host when a one-time code changes: TOTP codes turn over whenever the Unix time
// passes a multiple of their period, so the closure runs just after each such moment (a
// 30-second clock at :00 and :30 of every minute), and again in step after the user or NTP
// sets the system clock.
//
// It reads the same time source as the code generator, timeIntervalSince1970() (marlockCommon),
// so a tick never shows the code of the period that just ended. The next tick is always
// scheduled afresh from the time read after the last one, instead of adding the period to a
// running timer, so late wake-ups don't pile up into drift. Main thread only.
//
// A started clock must be stopped before it is destroyed; destroying it does not unregister
// it (its timer and the notification center hold it weakly, so nothing dangles).
//
//   Clock clock(30, [&](double now) { showCode(generator.code(now)); });
//   clock.start();                     // the first tick comes at the next boundary
class MCC_EXPORT Clock : public QObject {
    Q_OBJECT
public:
    using TickHandler = std::function<void(double)>;

    // Stores the period and the tick closure; does not start the clock. The period is in seconds,
    // finite and greater than zero: any other value stops the process.
    explicit Clock(double period, TickHandler onTick = {}, QObject* parent = nullptr);
    ~Clock() override;
    Q_DISABLE_COPY(Clock)

    double period() const { return period_; }
    // Called once per tick with the time read just after the boundary (not the boundary itself).
    const TickHandler& onTick() const { return onTick_; }

    // Whether start() has run without a following stop().
    bool started() const { return started_; }
    void setStarted(bool started) { started_ = started; }

    // The timer armed for the next boundary (kept, invalidated, after stop()).
    std::shared_ptr<RunLoopTimer> refreshTimer() const { return refreshTimer_; }
    void setRefreshTimer(std::shared_ptr<RunLoopTimer> timer) { refreshTimer_ = std::move(timer); }

    // Observes system clock changes and arms the timer; no tick now. Does nothing when started.
    Q_INVOKABLE void start();
    // Stops observing and invalidates the timer. Does nothing when stopped.
    Q_INVOKABLE void stop();

    // Arms a timer for the first multiple of the period strictly after now and returns the now
    // it read. The timer it replaces is released, not invalidated: called by hand on a started
    // clock, that timer still fires once (two ticks at that boundary). Works on a stopped clock.
    Q_INVOKABLE virtual double scheduleNextFire();

public slots:
    // The timer's action: re-arms, then calls onTick with the time read while re-arming.
    void timerDidFire(RunLoopTimer* timer);
    // The clock-change action: invalidates the pending timer and re-arms, without a tick.
    void significantTimeChangeDidOccur();

    // A clock without a period must not exist: C++ code cannot name this initialiser, and
    // reaching it through the meta-object system (Clock::staticMetaObject.newInstance()) stops
    // the process. moc lists only public constructors, hence the section it alone sees.
#ifdef Q_MOC_RUN
public:
#else
private:
#endif
    Q_INVOKABLE Clock();

private:
    const double period_;
    TickHandler onTick_;
    bool started_ = false;
    std::shared_ptr<RunLoopTimer> refreshTimer_;
};
