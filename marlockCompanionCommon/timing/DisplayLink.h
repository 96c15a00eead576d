#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QtGlobal>

#include <functional>
#include <memory>

// A per-frame timer: while running, calls its output callback once per refresh of the primary
// screen, on a thread of its own (never the main thread). Frames fall on a fixed grid of the
// monotonic clock; a callback that overruns skips the frames it missed rather than bunching
// them up. Calls never overlap, also across a stop() and a quick start().
//
// Nothing here waits for the link's thread. Once stop() has returned (or the link has been
// destroyed) no new call starts; a call already running finishes on the link's thread, which
// then ends by itself. So a callback that waits for the thread calling stop() — a blocking
// queued call to the main thread, say — cannot deadlock it. The link's thread keeps its own
// copy of the callback for as long as that call lasts; whatever else the callback touches must
// outlive it too. start(), stop(), setOutputCallback() and destruction are safe from any
// thread, the callback itself included.
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

    // The fastest rate a link runs at; a screen claiming more is taken at this rate.
    static constexpr double maximumFramesPerSecond = 1000.0;

    // A stopped link at the refresh rate of the primary screen: the screen's rate when a
    // QGuiApplication with a screen exists and this is called on its main thread, 60 Hz otherwise.
    static std::unique_ptr<DisplayLink> createWithActiveDisplays();

    // A stopped link at `framesPerSecond`: values ≤ 0 or not finite mean 60, values above
    // maximumFramesPerSecond mean that maximum.
    explicit DisplayLink(double framesPerSecond);
    // Stops the link, without waiting (see above).
    ~DisplayLink();
    DisplayLink(const DisplayLink&) = delete;
    DisplayLink& operator=(const DisplayLink&) = delete;

    // Replaces the callback from the next frame on; a call of the old one in progress finishes.
    // Null: frames pass without a call.
    void setOutputCallback(OutputCallback callback);

    void start();
    // No call starts after stop() returns; one already running is not waited for.
    void stop();
    bool isRunning() const;
    double nominalFramesPerSecond() const { return framesPerSecond_; }

private:
    struct Loop;

    const double framesPerSecond_;
    // Shared with the link's threads, which outlive the link when a call is still running.
    const std::shared_ptr<Loop> loop_;
};
