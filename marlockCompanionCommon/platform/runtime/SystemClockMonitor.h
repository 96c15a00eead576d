#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QObject>
#include <QString>

#include <memory>

class QSocketNotifier;

namespace platform {

// Posted on NotificationCenter::defaultCenter(), on the main thread and with no object, each
// time the system's wall clock is set.
inline const QString SystemClockDidChangeNotification = QStringLiteral("NSSystemClockDidChangeNotification");

// Watches the realtime clock and posts SystemClockDidChangeNotification whenever it is set
// (by the administrator, by a time daemon stepping it, on resume). Gradual slewing is not a
// change: it never makes a boundary computed from the wall clock wrong by more than the slew.
//
// Lives on the main thread: the notification is posted from its event loop.
//
//   platform::SystemClockMonitor::startShared();   // once, e.g. by the first started Clock
class MCC_EXPORT SystemClockMonitor : public QObject {
    Q_OBJECT
public:
    // Where the monitor learns that the clock was set. The real source is a timerfd armed on
    // CLOCK_REALTIME with TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET; tests substitute one
    // they can trigger, since they must never set the machine's clock.
    class Source {
    public:
        enum class Event { ClockWasSet, Nothing };
        virtual ~Source() = default;
        // Becomes readable when an event is pending.
        virtual int fileDescriptor() const = 0;
        // Arms (or re-arms after an event) the source.
        [[nodiscard]] virtual bool arm(Error* error) = 0;
        // Consumes what made the descriptor readable.
        virtual Event readEvent() = 0;
    };

    // The timerfd source; null (with the error set, domain "NSPOSIXErrorDomain", code errno)
    // when the kernel refuses one.
    static std::unique_ptr<Source> makeRealtimeClockSource(Error* error = nullptr);

    // Starts the process-wide monitor over the real clock on the first successful call; later
    // calls do nothing and return true. Call on the main thread.
    [[nodiscard]] static bool startShared(Error* error = nullptr);

    explicit SystemClockMonitor(std::unique_ptr<Source> source, QObject* parent = nullptr);
    ~SystemClockMonitor() override;
    Q_DISABLE_COPY(SystemClockMonitor)

    // Arms the source and starts watching it. True when already running.
    [[nodiscard]] bool start(Error* error = nullptr);
    void stop();
    bool isRunning() const;

private:
    void sourceBecameReadable();

    std::unique_ptr<Source> source_;
    std::unique_ptr<QSocketNotifier> notifier_;
};

} // namespace platform
