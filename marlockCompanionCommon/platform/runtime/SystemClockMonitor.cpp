#include "marlockCompanionCommon/platform/runtime/SystemClockMonitor.h"

#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <limits>
#include <mutex>
#include <sys/timerfd.h>
#include <unistd.h>

namespace platform {
namespace {

Error posixError(int code, const QString& what) {
    return Error(QStringLiteral("NSPOSIXErrorDomain"), code,
                 {{Error::localizedDescriptionKey,
                   what + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(code))}});
}

// A timer that never expires on its own (its expiry is the end of time_t) but is cancelled by
// the kernel, making the descriptor readable, whenever CLOCK_REALTIME is set.
class RealtimeClockSource final : public SystemClockMonitor::Source {
public:
    explicit RealtimeClockSource(int fd)
        : fd_(fd) {}
    ~RealtimeClockSource() override { ::close(fd_); }
    RealtimeClockSource(const RealtimeClockSource&) = delete;
    RealtimeClockSource& operator=(const RealtimeClockSource&) = delete;

    int fileDescriptor() const override { return fd_; }

    bool arm(Error* error) override {
        itimerspec spec{};
        spec.it_value.tv_sec = std::numeric_limits<time_t>::max();
        if (::timerfd_settime(fd_, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &spec, nullptr) == 0)
            return true;
        setError(error, posixError(errno, QStringLiteral("timerfd_settime")));
        return false;
    }

    Event readEvent() override {
        quint64 expirations = 0;
        const ssize_t n = ::read(fd_, &expirations, sizeof expirations);
        // A cancelled timer reports ECANCELED once; the expiry itself is out of reach.
        if (n < 0 && errno == ECANCELED)
            return Event::ClockWasSet;
        return Event::Nothing;
    }

private:
    int fd_;
};

} // namespace

std::unique_ptr<SystemClockMonitor::Source> SystemClockMonitor::makeRealtimeClockSource(Error* error) {
    const int fd = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    if (fd < 0) {
        setError(error, posixError(errno, QStringLiteral("timerfd_create")));
        return nullptr;
    }
    return std::make_unique<RealtimeClockSource>(fd);
}

bool SystemClockMonitor::startShared(Error* error) {
    // The monitor is created and started on the main thread, once it starts successfully.
    static std::mutex mutex;
    static SystemClockMonitor* shared = nullptr;
    std::lock_guard lock(mutex);
    if (shared)
        return true;
    auto source = makeRealtimeClockSource(error);
    if (!source)
        return false;
    auto monitor = std::make_unique<SystemClockMonitor>(std::move(source));
    if (!monitor->start(error))
        return false;
    shared = monitor.release(); // lives for the process
    return true;
}

SystemClockMonitor::SystemClockMonitor(std::unique_ptr<Source> source, QObject* parent)
    : QObject(parent)
    , source_(std::move(source)) {}

SystemClockMonitor::~SystemClockMonitor() = default;

bool SystemClockMonitor::start(Error* error) {
    if (notifier_)
        return true;
    if (!source_->arm(error))
        return false;
    notifier_ = std::make_unique<QSocketNotifier>(source_->fileDescriptor(), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &SystemClockMonitor::sourceBecameReadable);
    return true;
}

void SystemClockMonitor::stop() {
    notifier_.reset();
}

bool SystemClockMonitor::isRunning() const {
    return notifier_ != nullptr;
}

void SystemClockMonitor::sourceBecameReadable() {
    if (source_->readEvent() != Source::Event::ClockWasSet)
        return;
    // Re-arm before telling anyone, so a second change during the observers' work is not lost.
    // Re-arming a descriptor that armed once does not fail.
    (void)source_->arm(nullptr);
    NotificationCenter::defaultCenter().post(SystemClockDidChangeNotification);
}

} // namespace platform
