#include "marlockCompanionCommon/timing/RunLoopTimer.h"

#include "marlockCommon/TimeSource.h"

#include <QMetaMethod>

#include <chrono>
#include <cmath>
#include <limits>

namespace {

QMetaMethod findMethod(const QObject* target, const QByteArray& method) {
    const QMetaObject* meta = target->metaObject();
    for (const QByteArray& signature : {method + "(RunLoopTimer*)", method + "()"}) {
        const int index = meta->indexOfMethod(QMetaObject::normalizedSignature(signature.constData()));
        if (index >= 0)
            return meta->method(index);
    }
    return {};
}

} // namespace

std::shared_ptr<RunLoopTimer> RunLoopTimer::create(double fireDate, QObject* target, const char* method) {
    // A timer whose last reference goes while it is firing is deleted once the event loop is
    // back in control, not under its own QTimer's signal.
    std::shared_ptr<RunLoopTimer> timer(new RunLoopTimer(fireDate, target, method), [](RunLoopTimer* t) {
        if (t->firing_)
            t->deleteLater();
        else
            delete t;
    });
    timer->self_ = timer;
    return timer;
}

RunLoopTimer::RunLoopTimer(double fireDate, QObject* target, const char* method)
    : fireDate_(fireDate)
    , target_(target)
    , method_(method) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, &RunLoopTimer::expire);
}

RunLoopTimer::~RunLoopTimer() = default;

void RunLoopTimer::schedule() {
    if (!valid_ || keepAlive_)
        return;
    keepAlive_ = self_.lock();
    armForRemainingTime();
}

void RunLoopTimer::invalidate() {
    valid_ = false;
    timer_.stop();
    // May destroy this timer when nobody else holds it; nothing touches it afterwards.
    auto release = std::move(keepAlive_);
}

void RunLoopTimer::armForRemainingTime() {
    const double left = fireDate_ - timeIntervalSince1970();
    // A date that is no date (NaN) is never reached.
    if (std::isnan(left))
        return;
    // Rounded up, so the wait never ends before the date; capped to what a QTimer takes (a
    // longer wait simply re-arms when it ends).
    const double ms = std::ceil(std::max(left, 0.0) * 1000.0);
    const double cap = std::numeric_limits<int>::max();
    timer_.start(std::chrono::milliseconds(static_cast<qint64>(std::min(ms, cap))));
}

void RunLoopTimer::expire() {
    if (!valid_)
        return;
    if (std::isnan(fireDate_) || timeIntervalSince1970() < fireDate_) {
        armForRemainingTime();
        return;
    }
    valid_ = false;
    firing_ = true;
    {
        // The event loop lets go of a fired one-shot timer once its target has run.
        auto release = std::move(keepAlive_);
        if (QObject* target = target_.data()) {
            const QMetaMethod method = findMethod(target, method_);
            if (method.parameterCount() == 1)
                method.invoke(target, Qt::DirectConnection, Q_ARG(RunLoopTimer*, this));
            else if (method.isValid())
                method.invoke(target, Qt::DirectConnection);
        }
    }
    firing_ = false;
}
