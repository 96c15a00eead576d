#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/internal/TimerWait.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <QThreadPool>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <limits>
#include <mutex>

namespace platform {
namespace {

QCoreApplication* requireApplication() {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app)
        fatalError(QStringLiteral("The main queue needs a QCoreApplication; create one before using it"));
    return app;
}

} // namespace

struct OperationQueue::Private {
    bool main = false;
    QString name;
    std::unique_ptr<QThreadPool> pool;
    // Set when the queue's destruction begins; WeakOperationQueue adds nothing after that, so
    // the destructor's wait covers every item that can ever reach the pool.
    std::mutex closing;
    bool closed = false;

    void start(std::function<void()> operation) {
        if (main)
            dispatchAsyncMain(std::move(operation));
        else
            // QThreadPool starts items in the order they were queued, so one thread means serial FIFO.
            pool->start(std::move(operation));
    }
};

OperationQueue* OperationQueue::mainQueue() {
    static OperationQueue* queue = new OperationQueue(MainTag{});
    return queue;
}

OperationQueue::OperationQueue(MainTag)
    : d(std::make_shared<Private>()) {
    d->main = true;
    d->name = QStringLiteral("main");
}

OperationQueue::OperationQueue(int maxConcurrentOperationCount, QString name)
    : d(std::make_shared<Private>()) {
    d->name = std::move(name);
    d->pool = std::make_unique<QThreadPool>();
    if (maxConcurrentOperationCount > 0)
        d->pool->setMaxThreadCount(maxConcurrentOperationCount);
    // Threads stay around briefly so that bursts of small items do not pay for thread creation.
    d->pool->setExpiryTimeout(2000);
}

OperationQueue::~OperationQueue() {
    {
        std::lock_guard lock(d->closing);
        d->closed = true;
    }
    if (d->pool)
        d->pool->waitForDone();
}

void OperationQueue::addOperation(std::function<void()> operation) {
    d->start(std::move(operation));
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    if (d->main)
        fatalError(QStringLiteral("waitUntilAllOperationsAreFinished() is not available on the main queue"));
    d->pool->waitForDone();
}

WeakOperationQueue::WeakOperationQueue(OperationQueue* queue) {
    if (queue)
        queue_ = queue->d;
}

bool WeakOperationQueue::addOperation(std::function<void()> operation) const {
    const std::shared_ptr<OperationQueue::Private> queue = queue_.lock();
    if (!queue)
        return false;
    std::lock_guard lock(queue->closing);
    if (queue->closed)
        return false;
    queue->start(std::move(operation));
    return true;
}

bool OperationQueue::isMainQueue() const {
    return d->main;
}

QString OperationQueue::name() const {
    return d->name;
}

void dispatchAsyncMain(std::function<void()> work) {
    QMetaObject::invokeMethod(requireApplication(), std::move(work), Qt::QueuedConnection);
}

void dispatchAfterMain(qint64 nanoseconds, std::function<void()> work) {
    internal::dispatchAfterMain(nanoseconds, std::move(work), internal::maximumTimerWaitMs);
}

namespace internal {
namespace {

// On the main thread: runs `work` once `deadline` has passed, else arms a timer for (at most
// capMs of) the time left and looks again when it ends.
void runAtDeadline(QDeadlineTimer deadline, std::function<void()> work, qint64 capMs) {
    // A deadline too far to represent saturates to "forever": it is then waited for forever.
    const qint64 leftNs =
        deadline.isForever() ? std::numeric_limits<qint64>::max() : deadline.remainingTimeNSecs();
    if (leftNs <= 0) {
        work();
        return;
    }
    QTimer::singleShot(std::chrono::milliseconds(timerWaitMs(leftNs, capMs)), Qt::PreciseTimer,
                       QCoreApplication::instance(), [deadline, work = std::move(work), capMs]() mutable {
                           runAtDeadline(deadline, std::move(work), capMs);
                       });
}

} // namespace

qint64 timerWaitMs(qint64 leftNs, qint64 capMs) {
    // Divided first: adding the rounding before dividing overflows near the largest deadlines.
    const qint64 ms = leftNs / 1'000'000 + (leftNs % 1'000'000 != 0 ? 1 : 0);
    return std::min(ms, capMs);
}

void dispatchAfterMain(qint64 nanoseconds, std::function<void()> work, qint64 capMs) {
    // The deadline is fixed now, on the caller's thread; timers are armed on the main thread (a
    // QTimer belongs to the thread that starts it) for whatever time is left then.
    const QDeadlineTimer deadline(std::chrono::nanoseconds(std::max<qint64>(nanoseconds, 0)),
                                  Qt::PreciseTimer);
    dispatchAsyncMain([deadline, work = std::move(work), capMs]() mutable {
        runAtDeadline(deadline, std::move(work), capMs);
    });
}

} // namespace internal

bool isMainThread() {
    const QCoreApplication* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

} // namespace platform
