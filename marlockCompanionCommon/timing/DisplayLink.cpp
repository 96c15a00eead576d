#include "marlockCompanionCommon/timing/DisplayLink.h"

#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

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

double usableRate(double framesPerSecond) {
    if (!(std::isfinite(framesPerSecond) && framesPerSecond > 0))
        return 60.0;
    // Beyond this a frame rounds to nothing on the clock, and the loop would spin.
    return std::min(framesPerSecond, DisplayLink::maximumFramesPerSecond);
}

} // namespace

// What a link shares with its threads. Each start() runs a new thread for a new generation;
// a thread serves frames only while the generation it was started for is the running one, so
// stopping never needs to wait for it.
struct DisplayLink::Loop {
    std::mutex mutex;
    std::condition_variable changed;
    std::shared_ptr<const OutputCallback> callback;
    quint64 generation = 0;
    bool running = false;
    bool calling = false; // a thread is inside the callback
    SteadyClock::duration frame{};

    bool serves(quint64 thread) const { return running && generation == thread; }
    static void run(std::shared_ptr<Loop> loop, quint64 generation);
};

void DisplayLink::Loop::run(std::shared_ptr<Loop> loop, quint64 generation) {
    pthread_setname_np(pthread_self(), "OTPDisplayLink");
    std::unique_lock lock(loop->mutex);
    auto next = SteadyClock::now() + loop->frame;
    for (;;) {
        const bool ended = loop->changed.wait_until(lock, next, [&] { return !loop->serves(generation); });
        // A call of the thread this one replaced may still be running: calls never overlap.
        if (!ended)
            loop->changed.wait(lock, [&] { return !loop->calling || !loop->serves(generation); });
        if (!loop->serves(generation))
            break;
        const auto now = SteadyClock::now();
        // Frames missed while the callback or the machine was busy are dropped, not replayed.
        if (next <= now)
            next += ((now - next) / loop->frame + 1) * loop->frame;
        const FrameTimes times{nanosecondsOf(now), nanosecondsOf(next)};
        const std::shared_ptr<const OutputCallback> callback = loop->callback;
        loop->calling = true;
        lock.unlock();
        if (callback && *callback)
            (*callback)(times);
        lock.lock();
        loop->calling = false;
        loop->changed.notify_all();
    }
}

std::unique_ptr<DisplayLink> DisplayLink::createWithActiveDisplays() {
    return std::make_unique<DisplayLink>(primaryScreenRefreshRate());
}

DisplayLink::DisplayLink(double framesPerSecond)
    : framesPerSecond_(usableRate(framesPerSecond))
    , loop_(std::make_shared<Loop>()) {
    loop_->frame = std::chrono::duration_cast<SteadyClock::duration>(
        std::chrono::duration<double>(1.0 / framesPerSecond_));
}

DisplayLink::~DisplayLink() {
    stop();
}

void DisplayLink::setOutputCallback(OutputCallback callback) {
    auto shared = std::make_shared<const OutputCallback>(std::move(callback));
    std::shared_ptr<const OutputCallback> previous; // let go after the lock: its captures may be heavy
    std::lock_guard lock(loop_->mutex);
    previous = std::exchange(loop_->callback, std::move(shared));
}

void DisplayLink::start() {
    quint64 generation;
    {
        std::lock_guard lock(loop_->mutex);
        if (loop_->running)
            return;
        loop_->running = true;
        generation = ++loop_->generation;
    }
    // Detached: the thread holds the loop it needs, and ends by itself once it no longer serves
    // (after the call in progress, if any). Joining it could wait on a callback that waits on
    // the joining thread.
    std::thread(&Loop::run, loop_, generation).detach();
}

void DisplayLink::stop() {
    std::lock_guard lock(loop_->mutex);
    if (!loop_->running)
        return;
    loop_->running = false;
    loop_->changed.notify_all();
}

bool DisplayLink::isRunning() const {
    std::lock_guard lock(loop_->mutex);
    return loop_->running;
}
