#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include "marlockCompanionCommon/platform/runtime/FatalError.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <QThreadPool>
#include <QTimer>

#include <chrono>

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
};

OperationQueue* OperationQueue::mainQueue() {
    static OperationQueue* queue = new OperationQueue(MainTag{});
    return queue;
}

OperationQueue::OperationQueue(MainTag)
    : d(std::make_unique<Private>()) {
    d->main = true;
    d->name = QStringLiteral("main");
}

OperationQueue::OperationQueue(int maxConcurrentOperationCount, QString name)
    : d(std::make_unique<Private>()) {
    d->name = std::move(name);
    d->pool = std::make_unique<QThreadPool>();
    if (maxConcurrentOperationCount > 0)
        d->pool->setMaxThreadCount(maxConcurrentOperationCount);
    // Threads stay around briefly so that bursts of small items do not pay for thread creation.
    d->pool->setExpiryTimeout(2000);
}

OperationQueue::~OperationQueue() {
    if (d->pool)
        d->pool->waitForDone();
}

void OperationQueue::addOperation(std::function<void()> operation) {
    if (d->main) {
        dispatchAsyncMain(std::move(operation));
        return;
    }
    // QThreadPool starts items in the order they were queued, so one thread means serial FIFO.
    d->pool->start(std::move(operation));
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    if (d->main)
        fatalError(QStringLiteral("waitUntilAllOperationsAreFinished() is not available on the main queue"));
    d->pool->waitForDone();
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
