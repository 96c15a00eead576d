#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QtGlobal>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

// A per-frame timer: while running, calls its output callback once per refresh of the primary
// screen, on a thread of its own (never the main thread). Frames fall on a fixed grid of the
// monotonic clock; a callback that overruns skips the frames it missed rather than bunching
// them up.
//
// start() and stop() are safe from any thread, including the link's own (from inside the
// callback). stop() from another thread returns only once the callback has finished and the
// thread has ended. Destroying a link stops and joins it; a link cannot be destroyed from its
// own callback.
//
//   auto link = DisplayLink::createWithActiveDisplays();
//   link->setOutputCallback([](const DisplayLink::FrameTimes&) { advance(); });
//   link->start();
class MCC_EXPORT DisplayLink {
public:
    // Monotonic nanoseconds (QDeadlineTimer/steady clock) of this frame and of the next.
    struct FrameTimes {
        qint64 now;
        qint64 outputTime;
    };
    using OutputCallback = std::function<void(const FrameTimes&)>;

    // A stopped link at the refresh rate of the primary screen: the screen's rate when a
    // QGuiApplication with a screen exists and this is called on its main thread, 60 Hz otherwise.
    static std::unique_ptr<DisplayLink> createWithActiveDisplays();

    // A stopped link at `framesPerSecond` (values ≤ 0 or not finite mean 60).
    explicit DisplayLink(double framesPerSecond);
    ~DisplayLink();
    DisplayLink(const DisplayLink&) = delete;
    DisplayLink& operator=(const DisplayLink&) = delete;

    // Replaces the callback; waits for a call of the old one in progress on the link's thread
    // (unless called from that thread). Null: frames pass without a call.
    void setOutputCallback(OutputCallback callback);

    void start();
    void stop();
    bool isRunning() const;
    double nominalFramesPerSecond() const { return framesPerSecond_; }

private:
    void run();
    bool onLinkThread() const;

    const double framesPerSecond_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::mutex callbackMutex_; // held while the callback runs
    OutputCallback callback_;
    bool running_ = false;
    std::thread thread_;
    // The id of the thread while it runs the frame loop, so calls from the callback are known.
    std::atomic<std::thread::id> linkThread_{};
};
