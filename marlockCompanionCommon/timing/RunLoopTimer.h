#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <memory>

// A one-shot timer on the main thread's event loop that fires at an absolute wall-clock date
// (seconds since 1970, read from timeIntervalSince1970()) and then invokes a method of its
// target by name, passing itself.
//
// It never fires before its date: the event loop's timers count milliseconds on the monotonic
// clock, so when one expires while the wall clock still reads earlier than the date (rounding,
// a slewed clock) the timer waits for the rest instead of firing.
//
// Like a timer added to a run loop, a scheduled timer keeps itself alive until it fires or is
// invalidated; dropping every other reference does not stop it. The target is held weakly: a
// destroyed target is simply not called. Create, schedule and invalidate on the main thread.
//
//   auto timer = RunLoopTimer::create(next, clock, "timerDidFire");
//   timer->schedule();
class MCC_EXPORT RunLoopTimer : public QObject {
    Q_OBJECT
public:
    // A timer for `fireDate` that will invoke `method` (a bare name; the method takes one
    // RunLoopTimer* or nothing) on `target`. Not armed until schedule().
    static std::shared_ptr<RunLoopTimer> create(double fireDate, QObject* target, const char* method);

    ~RunLoopTimer() override;
    Q_DISABLE_COPY(RunLoopTimer)

    // Arms the timer on the main event loop. Does nothing on an invalidated or fired timer.
    void schedule();
    // Disarms for good: an invalidated timer never fires.
    void invalidate();
    // True until the timer is invalidated or has fired.
    bool isValid() const { return valid_; }
    // True from schedule() until it fires or is invalidated.
    bool isScheduled() const { return keepAlive_ != nullptr; }
    double fireDate() const { return fireDate_; }

private:
    RunLoopTimer(double fireDate, QObject* target, const char* method);
    void armForRemainingTime();
    void expire();

    double fireDate_;
    QPointer<QObject> target_;
    QByteArray method_;
    QTimer timer_;
    bool valid_ = true;
    bool firing_ = false;
    std::weak_ptr<RunLoopTimer> self_;
    // The event loop's hold on a scheduled timer.
    std::shared_ptr<RunLoopTimer> keepAlive_;
};
