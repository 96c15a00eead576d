#pragma once

#include "marlockCompanionCommon/notifications/DarwinNotifyCenter.h"

#include <memory>
#include <mutex>

namespace notifications::internal {

class NotifyObserverRegistry;
class DBusSignalReceiver;

// The session bus as DarwinNotifyCenter. Wire contract, relied on by other programs:
// one signal per post — path "/org/marlock/Notify", interface "org.marlock.Notify", member
// "Posted", one string argument: the full name. The process adds one match rule per observed
// name (arg0='<name>'), so the bus sends it only the names it observes; the bus also sends a
// process its own posts.
//
// The bus is joined on first use. Signals are received on the main thread. Without a session
// bus every post is delivered to this process only, and the system log says so once.
class DBusDarwinNotifyCenter final : public DarwinNotifyCenter {
public:
    DBusDarwinNotifyCenter();
    ~DBusDarwinNotifyCenter() override;
    DBusDarwinNotifyCenter(const DBusDarwinNotifyCenter&) = delete;
    DBusDarwinNotifyCenter& operator=(const DBusDarwinNotifyCenter&) = delete;

    void addObserver(void* observer, Callback callback, const QString& name) override;
    void removeObserver(void* observer, const QString& name) override;
    void removeEveryObserver(void* observer) override;
    void postNotification(const QString& name) override;
    QStringList observedNames(const void* observer) const override;

private:
    void joinBusOnce();
    void watchName(const QString& name);
    void unwatchName(const QString& name);

    std::shared_ptr<NotifyObserverRegistry> registry_;
    std::once_flag joined_;
    bool onBus_ = false;
    // Owned; lives on the main thread and is deleted there.
    DBusSignalReceiver* receiver_ = nullptr;
    // Keeps the registry and the bus's match rules in step.
    std::mutex watchMutex_;
};

} // namespace notifications::internal
