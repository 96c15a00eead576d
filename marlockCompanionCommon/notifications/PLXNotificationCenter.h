#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/runtime/Notification.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace platform {
class OperationQueue;
}

// A notification center for names that cross process boundaries. Notifications carry only
// their name: delivered notifications have the full registered name, no object, no user info.
class MCC_EXPORT PLXNotificationCenter {
public:
    // The observer object of a block registration. The center keeps it (and so the
    // registration) until it is passed to removeObserver(), whether or not the caller keeps it.
    using ObserverToken = std::shared_ptr<QObject>;
    using Block = std::function<void(const platform::Notification&)>;

    virtual ~PLXNotificationCenter() = default;

    // Runs `block` on `queue` (null: the main queue) for every post of `name`. The queue is not
    // kept alive: once it is destroyed, the block runs no more.
    virtual ObserverToken addObserverForName(const QString& name, platform::OperationQueue* queue,
                                             Block block) = 0;

    // Invokes `selector` (the name of a slot or Q_INVOKABLE method such as "settingsDidChange",
    // taking one platform::Notification or nothing) on `observer`, on the main queue, for every
    // post of `name`. The observer is held weakly: once destroyed it receives nothing more.
    virtual void addObserver(QObject* observer, const char* selector, const QString& name) = 0;

    // Removes `observer` (a QObject or a token's object) from every name.
    virtual void removeObserver(const QObject* observer) = 0;
    // Removes `observer` from `name`; see each implementation for an absent name.
    virtual void removeObserver(const QObject* observer, const std::optional<QString>& name) = 0;

    // Posts the notification's name only: object and user info do not cross processes.
    virtual void postNotification(const platform::Notification& notification) = 0;
    virtual void postNotificationName(const QString& name) = 0;
};
