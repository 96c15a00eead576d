#pragma once

#include "marlockCompanionCommon/notifications/DarwinNotifyCenter.h"

#include <memory>

namespace notifications::internal {

class NotifyObserverRegistry;
class DBusSignalReceiver;

// The session bus as DarwinNotifyCenter. Wire contract, relied on by other programs:
// one signal per post — path "/org/marlock/Notify", interface "org.marlock.Notify", member
// "Posted", one string argument: the full name.
//
// The process asks the bus once, when the center is created, for every "Posted" signal (one
// match rule on path, interface and member) and picks out the names it observes itself. Rules
// naming each observed name would have to quote it, hold valid UTF-8 and fit the bus's
// 1,024-byte limit on a rule; one rule for the interface has none of those limits, and
// observing a name never waits on the bus. The bus also sends a process its own posts.
//
// Without a session bus every post is delivered to this process only; when the bus refuses the
// match rule, posts still go out and this process hears its own. Either is said once in the
// system log. Signals are received on the main thread.
class DBusDarwinNotifyCenter final : public DarwinNotifyCenter {
public:
    // Joins the session bus: one round trip, so that posts made by anyone afterwards are heard.
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
    void deliverHere(const QString& name) const;

    std::shared_ptr<NotifyObserverRegistry> registry_;
    // Posts go out as signals.
    bool onBus_ = false;
    // The bus sends this process every "Posted" signal, its own included.
    bool hearsBus_ = false;
    // Owned; lives on the main thread and is deleted there.
    DBusSignalReceiver* receiver_ = nullptr;
};

} // namespace notifications::internal
