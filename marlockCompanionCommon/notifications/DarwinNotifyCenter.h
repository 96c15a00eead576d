#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

// The system-wide, name-only notification service that PLXDarwinNotificationCenter stands on:
// a broadcast of bare names between the processes of one user session. A post reaches every
// process observing the name, the posting one included, once per post.
//
// On Linux the system center is the D-Bus session bus (one signal per post, see
// DBusDarwinNotifyCenter); LocalDarwinNotifyCenter is an in-memory one for tests.
//
// Callbacks run on the main thread, never inside the call that posts or registers.
// All operations are safe from any thread.
class MCC_EXPORT DarwinNotifyCenter {
public:
    // The callback shape of the service: the center, the registered observer, the posted name,
    // and an object and user info that this service always leaves empty.
    using Callback = void (*)(DarwinNotifyCenter* center, void* observer, const QString& name,
                              const void* object, const QVariantMap& userInfo);

    // The session's center (the D-Bus session bus), created on first use (after the
    // QCoreApplication: it joins the bus then, with one round trip) and kept for the life of the
    // process. Without a session bus it delivers posts to this process only and says once in the
    // system log that other processes will not hear them.
    static DarwinNotifyCenter* systemCenter();

    virtual ~DarwinNotifyCenter() = default;

    // Calls `callback` with `observer` for every later post of `name` by any process. When this
    // returns, posts made afterwards (by anyone) are heard. Registering the same observer and
    // name again changes nothing but the callback.
    virtual void addObserver(void* observer, Callback callback, const QString& name) = 0;
    // Withdraws `observer`'s registration for `name`, if any. A post already on its way may
    // still reach the observer's callback once.
    virtual void removeObserver(void* observer, const QString& name) = 0;
    // Withdraws every registration of `observer`. When this returns, its callback is neither
    // running nor called again, so the observer may be destroyed.
    virtual void removeEveryObserver(void* observer) = 0;
    // Broadcasts `name`.
    virtual void postNotification(const QString& name) = 0;

    // The names `observer` is registered for, sorted (for diagnostics and tests).
    virtual QStringList observedNames(const void* observer) const = 0;
};
