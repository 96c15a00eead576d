#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>

#include <functional>
#include <memory>

namespace platform {

// A queue of work items.
//
// The main queue runs its items on the Qt main thread's event loop, one at a time and in the
// order they were added; it needs a QCoreApplication (or QApplication) to exist. Any other
// queue runs its items on threads of its own, at most maxConcurrentOperationCount at a time;
// a queue with a count of 1 is serial and keeps the order of addition.
//
// addOperation() is safe from any thread and never runs the item synchronously. Code that keeps
// a queue it does not own (an observer registration, say) holds a WeakOperationQueue, which
// stops handing items over once the queue is being destroyed instead of reaching freed memory.
//
//   platform::OperationQueue worker(1, "token refresh");
//   worker.addOperation([] { refresh(); });
//   platform::OperationQueue::mainQueue()->addOperation([] { updateWindow(); });
class MCC_EXPORT OperationQueue {
public:
    static constexpr int unlimited = -1;

    // The queue of the main thread. Lives for the process.
    static OperationQueue* mainQueue();

    explicit OperationQueue(int maxConcurrentOperationCount = unlimited, QString name = {});
    // Waits for the items already added to finish; the main queue is never destroyed.
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    void addOperation(std::function<void()> operation);

    // Blocks until every item added so far has run. Not for the main queue (it would wait on
    // itself when called from the main thread).
    void waitUntilAllOperationsAreFinished();

    bool isMainQueue() const;
    QString name() const;

private:
    friend class WeakOperationQueue;
    struct MainTag {};
    explicit OperationQueue(MainTag);
    struct Private;
    // Shared with WeakOperationQueue, which may still hold it while the queue is destroyed.
    std::shared_ptr<Private> d;
};

// A reference to a queue that does not keep it alive. addOperation() hands the item to the
// queue while it exists; once the queue's destructor has begun, items are dropped and it returns
// false. Safe from any thread, also while another thread destroys the queue.
//
//   platform::WeakOperationQueue later(&worker);
//   later.addOperation([] { refresh(); }); // false, and nothing runs, once `worker` is gone
class MCC_EXPORT WeakOperationQueue {
public:
    // Refers to nothing: addOperation() always returns false.
    WeakOperationQueue() = default;
    // Refers to `queue`, which must be alive now (null refers to nothing).
    explicit WeakOperationQueue(OperationQueue* queue);

    // Adds `operation` to the queue if it still exists; returns whether it did.
    bool addOperation(std::function<void()> operation) const;

private:
    std::weak_ptr<OperationQueue::Private> queue_;
};

// Runs `work` once on the main thread at a later pass of its event loop, never synchronously.
MCC_EXPORT void dispatchAsyncMain(std::function<void()> work);

// Runs `work` once on the main thread when `nanoseconds` have passed on the monotonic clock,
// counted from this call. Zero or negative delays run at the next pass of the event loop. Delays
// of any length work (one beyond what a single QTimer takes, about 24.8 days, re-arms).
MCC_EXPORT void dispatchAfterMain(qint64 nanoseconds, std::function<void()> work);

// True on the Qt main thread.
MCC_EXPORT bool isMainThread();

} // namespace platform
