#include "marlockCompanionCommon/platform/runtime/SystemClockMonitor.h"

#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>

using namespace std::chrono_literals;
using platform::SystemClockMonitor;
using testsupport::spinEventLoop;
using testsupport::waitUntil;

namespace {

// Observes the clock-change notification, and hands out a source it fires by hand: an eventfd
// made readable on demand, reporting either a clock change or a spurious wake-up.
class SystemClockMonitorTest : public ::testing::Test {
protected:
    class ManualSource : public SystemClockMonitor::Source {
    public:
        explicit ManualSource(SystemClockMonitorTest* test)
            : test_(test) {}
        int fileDescriptor() const override { return test_->fd_; }
        bool arm(platform::Error*) override {
            ++test_->arms_;
            return true;
        }
        Event readEvent() override {
            uint64_t value = 0;
            if (::read(test_->fd_, &value, sizeof value) != ssize_t(sizeof value))
                return Event::Nothing;
            return test_->nextIsClockChange_ ? Event::ClockWasSet : Event::Nothing;
        }

    private:
        SystemClockMonitorTest* test_;
    };

    void SetUp() override {
        fd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        ASSERT_GE(fd_, 0);
        token_ = platform::NotificationCenter::defaultCenter().addObserver(
            platform::SystemClockDidChangeNotification, nullptr, nullptr,
            [this](const platform::Notification& n) {
                ++posts_;
                postsOnMain_ += platform::isMainThread() && n.object.isNull();
            });
    }
    void TearDown() override {
        platform::NotificationCenter::defaultCenter().removeObserver(token_);
        ::close(fd_);
    }
    void trigger() {
        const uint64_t one = 1;
        ASSERT_EQ(::write(fd_, &one, sizeof one), ssize_t(sizeof one));
    }

    int fd_ = -1;
    platform::NotificationCenter::ObserverToken token_;
    std::atomic<int> posts_{0}, postsOnMain_{0}, arms_{0};
    std::atomic<bool> nextIsClockChange_{true};
};

TEST_F(SystemClockMonitorTest, PostsOnTheMainThreadAndRearmsAfterEachChange) {
    SystemClockMonitor monitor(std::make_unique<ManualSource>(this));
    ASSERT_TRUE(monitor.start());
    ASSERT_TRUE(monitor.start());
    EXPECT_TRUE(monitor.isRunning());
    EXPECT_EQ(arms_, 1);

    trigger();
    ASSERT_TRUE(waitUntil([&] { return posts_ == 1; }));
    EXPECT_EQ(arms_, 2) << "re-armed after the change";
    trigger();
    ASSERT_TRUE(waitUntil([&] { return posts_ == 2; }));
    EXPECT_EQ(arms_, 3);
    EXPECT_EQ(postsOnMain_, 2) << "posted on the main thread, with no object";

    nextIsClockChange_ = false;
    trigger();
    spinEventLoop(50ms);
    EXPECT_EQ(posts_, 2) << "a wake-up that is no change posts nothing";
    EXPECT_EQ(arms_, 3);

    monitor.stop();
    EXPECT_FALSE(monitor.isRunning());
    nextIsClockChange_ = true;
    trigger();
    spinEventLoop(50ms);
    EXPECT_EQ(posts_, 2) << "a stopped monitor is deaf";
}

TEST_F(SystemClockMonitorTest, TheRealtimeSourceWaitsQuietlyForAClockChange) {
    platform::Error error;
    auto source = SystemClockMonitor::makeRealtimeClockSource(&error);
    ASSERT_NE(source, nullptr) << error.description().toStdString();
    ASSERT_TRUE(source->arm(&error)) << error.description().toStdString();
    pollfd readable{source->fileDescriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&readable, 1, 20), 0) << "armed for no expiry of its own";
    EXPECT_EQ(source->readEvent(), SystemClockMonitor::Source::Event::Nothing);

    EXPECT_TRUE(SystemClockMonitor::startShared(&error)) << error.description().toStdString();
    EXPECT_TRUE(SystemClockMonitor::startShared());
    spinEventLoop(50ms);
    EXPECT_EQ(posts_, 0) << "the machine's clock is never set by the tests";
}

} // namespace
