#include "marlockCompanionCommon/timing/OTPDisplayLink.h"

#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <thread>

using namespace std::chrono_literals;
using testsupport::spinEventLoop;
using testsupport::waitUntil;

namespace {

// Calls of a block that have started and that have returned.
struct Calls {
    std::atomic<int> started{0}, returned{0};
    bool settled() const { return started == returned; }
    // After stop() or the destruction, and the call that may still be running, none starts.
    void expectNoMore() const {
        ASSERT_TRUE(waitUntil([&] { return settled(); })) << "the last call returns once the loop runs";
        const int stoppedAt = started;
        spinEventLoop(100ms);
        EXPECT_EQ(started, stoppedAt);
    }
};

// Runs `call`, aborting the test process with `what` if it has not returned after a minute: a
// hang becomes a failure. Never used to judge how fast anything is.
void expectReturn(const char* what, const std::function<void()>& call) {
    std::promise<void> returned;
    std::thread watchdog([what, future = returned.get_future()] {
        if (future.wait_for(60s) == std::future_status::timeout) {
            std::fprintf(stderr, "%s did not return\n", what);
            std::abort();
        }
    });
    call();
    returned.set_value();
    watchdog.join();
}

TEST(OTPDisplayLink, TicksAtSixtyHertzWithoutAScreenAndUpdateCallsTheCallbackIfAny) {
    OTPDisplayLink link;
    ASSERT_NE(link.displayLink(), nullptr);
    EXPECT_EQ(link.displayLink()->nominalFramesPerSecond(), 60.0);

    link.update(); // no callback: nothing to call, nothing to fail
    int calls = 0;
    link.setCallback([&] { ++calls; });
    link.update();
    EXPECT_EQ(calls, 1) << "on the calling thread, at once";
    link.setCallback({});
    link.update();
    EXPECT_EQ(calls, 1);
}

TEST(OTPDisplayLink, StartsStopsAndRestartsOffTheMainThread) {
    auto calls = std::make_shared<Calls>();
    std::atomic<int> onMain{0};
    auto link = std::make_unique<OTPDisplayLink>();
    link->setCallback([&onMain, calls] {
        ++calls->started;
        onMain += platform::isMainThread();
        ++calls->returned;
    });
    link->start();
    ASSERT_TRUE(waitUntil([&] { return calls->returned >= 3; }));
    link->stop();
    calls->expectNoMore();

    const int restartedAt = calls->started;
    link->start();
    link->start();
    ASSERT_TRUE(waitUntil([&] { return calls->returned >= restartedAt + 3; }));
    link->stop();
    link->stop();
    calls->expectNoMore();
    EXPECT_EQ(onMain, 0);
}

TEST(OTPDisplayLink, StoppingOrDestroyingItNeverWaitsForABlockWaitingOnTheMainThread) {
    for (const bool destroy : {false, true}) {
        SCOPED_TRACE(destroy ? "destroyed" : "stopped");
        auto calls = std::make_shared<Calls>();
        auto link = std::make_unique<OTPDisplayLink>();
        link->setCallback([calls] {
            ++calls->started;
            QMetaObject::invokeMethod(
                QCoreApplication::instance(), [] {}, Qt::BlockingQueuedConnection);
            ++calls->returned;
        });
        link->start();
        ASSERT_TRUE(waitUntil([&] { return calls->returned >= 2; }));
        // Without serving the event loop: the next call starts and waits on this thread.
        while (calls->settled())
            std::this_thread::sleep_for(1ms);
        expectReturn(destroy ? "destroying the link" : "stop()",
                     [&] { destroy ? link.reset() : link->stop(); });
        EXPECT_FALSE(calls->settled()) << "the waiting call is still waiting";
        calls->expectNoMore();
    }
}

// The counters are shared with the callbacks: a call in progress may outlive stop() and the link.
TEST(DisplayLink, ClampsAbsurdRatesAndStillStops) {
    for (const double rate : {1e10, 1e300}) {
        DisplayLink link(rate);
        EXPECT_EQ(link.nominalFramesPerSecond(), DisplayLink::maximumFramesPerSecond);
        auto frames = std::make_shared<std::atomic<int>>(0);
        link.setOutputCallback(
            [frames](const DisplayLink::FrameTimes& times) { *frames += times.outputTime > times.now; });
        link.start();
        ASSERT_TRUE(waitUntil([&] { return *frames >= 5; }));
        expectReturn("stopping a fast link", [&] { link.stop(); });
    }
}

TEST(DisplayLink, CanBeStoppedAndRestartedFromItsOwnCallback) {
    DisplayLink link(240);
    auto frames = std::make_shared<std::atomic<int>>(0);
    link.setOutputCallback([&link, frames](const DisplayLink::FrameTimes& times) {
        EXPECT_GT(times.outputTime, times.now);
        if (++*frames == 3)
            link.stop();
    });
    link.start();
    ASSERT_TRUE(waitUntil([&] { return !link.isRunning(); }));
    spinEventLoop(50ms);
    EXPECT_EQ(*frames, 3);

    link.start();
    ASSERT_TRUE(waitUntil([&] { return *frames >= 5; }));
    link.stop();
}

} // namespace
