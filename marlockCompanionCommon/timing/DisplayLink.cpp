#include "marlockCompanionCommon/timing/DisplayLink.h"

#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include <QGuiApplication>
#include <QScreen>

#include <chrono>
#include <cmath>
#include <pthread.h>

namespace {

using SteadyClock = std::chrono::steady_clock;

qint64 nanosecondsOf(SteadyClock::time_point t) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(t.time_since_epoch()).count();
}

double primaryScreenRefreshRate() {
    // Screens belong to the GUI thread; elsewhere the link falls back to the common rate.
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) && platform::isMainThread())
        if (const QScreen* screen = QGuiApplication::primaryScreen())
            return screen->refreshRate();
    return 60.0;
}

} // namespace

std::unique_ptr<DisplayLink> DisplayLink::createWithActiveDisplays() {
    return std::make_unique<DisplayLink>(primaryScreenRefreshRate());
}

DisplayLink::DisplayLink(double framesPerSecond)
    : framesPerSecond_(std::isfinite(framesPerSecond) && framesPerSecond > 0 ? framesPerSecond : 60.0) {}

DisplayLink::~DisplayLink() {
    if (onLinkThread())
        platform::fatalError(QStringLiteral("A display link cannot be destroyed from its own callback"));
    stop();
    // A link stopped from its own callback left its thread to end by itself.
    if (thread_.joinable())
        thread_.join();
}

void DisplayLink::setOutputCallback(OutputCallback callback) {
    std::unique_lock callbackLock(callbackMutex_, std::defer_lock);
    if (!onLinkThread())
        callbackLock.lock();
    std::lock_guard lock(mutex_);
    callback_ = std::move(callback);
}

bool DisplayLink::onLinkThread() const {
    return std::this_thread::get_id() == linkThread_.load();
}

void DisplayLink::start() {
    std::unique_lock lock(mutex_);
    if (running_)
        return;
    if (onLinkThread()) {
        // Stopped and restarted from inside the callback: the loop simply goes on.
        running_ = true;
        return;
    }
    if (thread_.joinable()) {
        // Stopped from its own callback earlier: let that thread finish before a new one starts.
        lock.unlock();
        thread_.join();
        lock.lock();
        if (running_)
            return;
    }
    running_ = true;
    thread_ = std::thread([this] { run(); });
}

void DisplayLink::stop() {
    std::unique_lock lock(mutex_);
    if (!running_)
        return;
    running_ = false;
    wake_.notify_all();
    if (onLinkThread())
        return;
    std::thread finished = std::move(thread_);
    lock.unlock();
    finished.join();
}

bool DisplayLink::isRunning() const {
    std::lock_guard lock(mutex_);
    return running_;
}

void DisplayLink::run() {
    pthread_setname_np(pthread_self(), "OTPDisplayLink");
    linkThread_.store(std::this_thread::get_id());
    const auto frame = std::chrono::duration_cast<SteadyClock::duration>(
        std::chrono::duration<double>(1.0 / framesPerSecond_));
    auto next = SteadyClock::now() + frame;
    std::unique_lock lock(mutex_);
    while (running_) {
        if (wake_.wait_until(lock, next, [this] { return !running_; }))
            break;
        const auto now = SteadyClock::now();
        // Frames missed while the callback or the machine was busy are dropped, not replayed.
        while (next <= now)
            next += frame;
        const FrameTimes times{nanosecondsOf(now), nanosecondsOf(next)};
        lock.unlock();
        {
            std::lock_guard callbackLock(callbackMutex_);
            OutputCallback callback;
            {
                std::lock_guard stateLock(mutex_);
                callback = callback_;
            }
            if (callback)
                callback(times);
        }
        lock.lock();
    }
    linkThread_.store(std::thread::id());
}
