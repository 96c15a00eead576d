#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include "marlockCompanionCommon/platform/runtime/FatalError.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <QThreadPool>
#include <QTimer>

#include <chrono>
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
    // The deadline is fixed now, on the caller's thread; the timer is armed on the main thread
    // (a QTimer belongs to the thread that starts it) for whatever time is left then.
    const QDeadlineTimer deadline(std::chrono::nanoseconds(std::max<qint64>(nanoseconds, 0)),
                                  Qt::PreciseTimer);
    dispatchAsyncMain([deadline, work = std::move(work)]() mutable {
        const qint64 leftNs = deadline.remainingTimeNSecs();
        if (leftNs <= 0) {
            work();
            return;
        }
        // Round up: a timer must never fire before its deadline.
        const auto leftMs = std::chrono::milliseconds((leftNs + 999'999) / 1'000'000);
        QTimer::singleShot(leftMs, Qt::PreciseTimer, QCoreApplication::instance(), std::move(work));
    });
}

bool isMainThread() {
    const QCoreApplication* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

} // namespace platform
