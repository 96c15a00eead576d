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
// addOperation() is safe from any thread and never runs the item synchronously.
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
    struct MainTag {};
    explicit OperationQueue(MainTag);
    struct Private;
    std::unique_ptr<Private> d;
};

// Runs `work` once on the main thread at a later pass of its event loop, never synchronously.
MCC_EXPORT void dispatchAsyncMain(std::function<void()> work);

// Runs `work` once on the main thread when `nanoseconds` have passed on the monotonic clock,
// counted from this call. Zero or negative delays run at the next pass of the event loop.
MCC_EXPORT void dispatchAfterMain(qint64 nanoseconds, std::function<void()> work);

// True on the Qt main thread.
MCC_EXPORT bool isMainThread();

} // namespace platform
