#include "marlockCompanionCommon/timing/OTPDisplayLink.h"

#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

using namespace std::chrono_literals;
using testsupport::spinEventLoop;
using testsupport::waitUntil;

namespace {

// Calls of a block that have started and that have returned.
struct Calls {
    std::atomic<int> started{0}, returned{0};
    bool settled() const { return started == returned; }
};

// Turns a hang into a failure: aborts the test process unless dismissed within `limit`. Only
// for calls that must return at all, never to judge how fast they are.
class HangGuard {
public:
    HangGuard(std::chrono::seconds limit, const char* what)
        : thread_([this, limit, what] {
            std::unique_lock lock(mutex_);
            if (!dismissed_.wait_for(lock, limit, [this] { return done_; })) {
                std::fprintf(stderr, "%s did not return\n", what);
                std::abort();
            }
        }) {}
    ~HangGuard() {
        {
            std::lock_guard lock(mutex_);
            done_ = true;
        }
        dismissed_.notify_all();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable dismissed_;
    bool done_ = false;
    std::thread thread_;
};

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

TEST(OTPDisplayLink, StartsStopsAndRestartsOffTheMainThreadAndStopsWhenDestroyed) {
    auto calls = std::make_shared<Calls>();
    std::atomic<int> onMain{0};
    auto link = std::make_unique<OTPDisplayLink>();
    link->setCallback([&onMain, calls] {
        ++calls->started;
        onMain += platform::isMainThread();
        ++calls->returned;
    });
    // After stop() (or the destruction) and the call that may still be running, none starts.
    const auto expectNoMoreCalls = [&] {
        ASSERT_TRUE(waitUntil([&] { return calls->settled(); }));
        const int stoppedAt = calls->started;
        spinEventLoop(100ms);
        EXPECT_EQ(calls->started, stoppedAt);
    };
    link->start();
    ASSERT_TRUE(waitUntil([&] { return calls->returned >= 3; }));
    link->stop();
    expectNoMoreCalls();

    const int restartedAt = calls->started;
    link->start();
    link->start();
    ASSERT_TRUE(waitUntil([&] { return calls->returned >= restartedAt + 3; }));
    link->stop();
    link->stop();
    expectNoMoreCalls();
    EXPECT_EQ(onMain, 0);

    link->start();
    ASSERT_TRUE(waitUntil([&] { return calls->returned >= restartedAt + 4; }));
    link.reset();
    expectNoMoreCalls();
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
        {
            HangGuard guard(30s, destroy ? "destroying the link" : "stop()");
            if (destroy)
                link.reset();
            else
                link->stop();
        }
        EXPECT_FALSE(calls->settled()) << "the waiting call is still waiting";
        const int stoppedAt = calls->started;
        ASSERT_TRUE(waitUntil([&] { return calls->settled(); })) << "it finishes once the loop runs";
        spinEventLoop(100ms);
        EXPECT_EQ(calls->started, stoppedAt);
    }
}

TEST(DisplayLink, ClampsAbsurdRatesAndStillStops) {
    for (const double rate : {1e10, 1e300, double(INFINITY)}) {
        SCOPED_TRACE(rate);
        auto link = std::make_unique<DisplayLink>(rate);
        EXPECT_EQ(link->nominalFramesPerSecond(),
                  std::isinf(rate) ? 60.0 : DisplayLink::maximumFramesPerSecond);
        std::atomic<int> frames{0};
        link->setOutputCallback([&](const DisplayLink::FrameTimes& times) {
            EXPECT_GT(times.outputTime, times.now);
            ++frames;
        });
        link->start();
        ASSERT_TRUE(waitUntil([&] { return frames >= 5; }));
        HangGuard guard(30s, "stopping a fast link");
        link->stop();
        link.reset();
    }
}

TEST(DisplayLink, CanBeStoppedRestartedAndDestroyedFromItsOwnCallback) {
    auto link = std::make_unique<DisplayLink>(240);
    std::atomic<int> frames{0};
    link->setOutputCallback([&](const DisplayLink::FrameTimes& times) {
        EXPECT_GT(times.outputTime, times.now);
        if (++frames == 3)
            link->stop();
    });
    link->start();
    ASSERT_TRUE(waitUntil([&] { return !link->isRunning(); }));
    spinEventLoop(50ms);
    EXPECT_EQ(frames, 3);

    std::atomic<bool> destroyed{false};
    link->setOutputCallback([&](const DisplayLink::FrameTimes&) {
        if (++frames == 5) {
            link.reset();
            destroyed = true;
        }
    });
    link->start();
    ASSERT_TRUE(waitUntil([&] { return destroyed.load(); }));
    spinEventLoop(50ms);
    EXPECT_EQ(frames, 5);
}

} // namespace
