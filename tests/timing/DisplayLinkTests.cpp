#include "marlockCompanionCommon/timing/OTPDisplayLink.h"

#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

using namespace std::chrono_literals;
using testsupport::spinEventLoop;
using testsupport::waitUntil;

namespace {

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
    auto frames = std::make_shared<std::atomic<int>>(0);
    std::atomic<int> onMain{0};
    auto link = std::make_unique<OTPDisplayLink>();
    link->setCallback([&onMain, frames] {
        onMain += platform::isMainThread();
        ++*frames;
    });
    link->start();
    ASSERT_TRUE(waitUntil([&] { return *frames >= 3; }));
    link->stop();
    const int stoppedAt = *frames;
    spinEventLoop(100ms);
    EXPECT_EQ(*frames, stoppedAt) << "no frame after stop() returned";

    link->start();
    link->start();
    ASSERT_TRUE(waitUntil([&] { return *frames >= stoppedAt + 3; }));
    link->stop();
    link->stop();
    EXPECT_EQ(onMain, 0);

    // Destroying a running link ends its thread.
    link->start();
    ASSERT_TRUE(waitUntil([&] { return *frames >= stoppedAt + 4; }));
    link.reset();
    const int atDestruction = *frames;
    spinEventLoop(100ms);
    EXPECT_EQ(*frames, atDestruction);
}

TEST(OTPDisplayLink, AReplacedDisplayLinkIsUsedAsItIs) {
    std::atomic<int> frames{0};
    OTPDisplayLink link;
    link.setCallback([&] { ++frames; });
    auto replacement = std::make_unique<DisplayLink>(120.0);
    DisplayLink* raw = replacement.get();
    link.setDisplayLink(std::move(replacement));
    EXPECT_EQ(link.displayLink(), raw);
    link.start();
    EXPECT_TRUE(raw->isRunning());
    spinEventLoop(100ms);
    link.stop();
    EXPECT_FALSE(raw->isRunning());
    EXPECT_EQ(frames, 0) << "the replacement has no output callback installed";
}

TEST(DisplayLink, CanBeStoppedAndRestartedFromItsOwnCallback) {
    DisplayLink link(240);
    std::atomic<int> frames{0};
    link.setOutputCallback([&](const DisplayLink::FrameTimes& times) {
        EXPECT_GT(times.outputTime, times.now);
        if (++frames == 3)
            link.stop();
    });
    link.start();
    ASSERT_TRUE(waitUntil([&] { return !link.isRunning(); }));
    spinEventLoop(50ms);
    EXPECT_EQ(frames, 3);

    link.start();
    ASSERT_TRUE(waitUntil([&] { return frames >= 5; }));
    link.stop();
}

} // namespace
