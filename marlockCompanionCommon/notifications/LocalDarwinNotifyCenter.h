#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/notifications/DarwinNotifyCenter.h"

#include <memory>

namespace notifications::internal {
class NotifyObserverRegistry;
}

// An in-memory DarwinNotifyCenter: a "session" that lives inside one process, for tests. Every
// observer registered with it hears every post made through it; several
// PLXDarwinNotificationCenter objects over one LocalDarwinNotifyCenter behave like processes
// sharing a bus. Posts are delivered on the main thread at a later pass of its event loop.
//
//   LocalDarwinNotifyCenter session;
//   PLXDarwinNotificationCenter app(&session), widget(&session);
class MCC_EXPORT LocalDarwinNotifyCenter final : public DarwinNotifyCenter {
public:
    LocalDarwinNotifyCenter();
    ~LocalDarwinNotifyCenter() override;
    LocalDarwinNotifyCenter(const LocalDarwinNotifyCenter&) = delete;
    LocalDarwinNotifyCenter& operator=(const LocalDarwinNotifyCenter&) = delete;

    void addObserver(void* observer, Callback callback, const QString& name) override;
    void removeObserver(void* observer, const QString& name) override;
    void removeEveryObserver(void* observer) override;
    void postNotification(const QString& name) override;
    QStringList observedNames(const void* observer) const override;

private:
    // Shared with deliveries still queued, so that they find nothing once the center is gone.
    std::shared_ptr<notifications::internal::NotifyObserverRegistry> registry_;
};
