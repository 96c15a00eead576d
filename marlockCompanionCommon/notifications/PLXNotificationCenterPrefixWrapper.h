#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/notifications/PLXNotificationCenter.h"

#include <QObject>

#include <memory>

// A PLXNotificationCenter that puts one product's names in one namespace: every name passed in
// becomes "<prefix>.<name>" on the wrapped center, and notifications delivered through it carry
// that full name. Stateless beyond its two properties; any number may share one center.
//
//   PLXNotificationCenterPrefixWrapper center(PLXDarwinNotificationCenter::defaultCenter(), "..a.b..");
//   center.prefix();                 // "a.b"
//   center.postNotificationName("x"); // posts "a.b.x"
//
// Two removals are deliberately not symmetric with the wrapped center:
//  - removeObserver(observer) is forwarded unprefixed and so removes the observer from every name
//    of the wrapped center, names outside this prefix included;
//  - removeObserver(observer, std::nullopt) removes "<prefix>.(null)" only (the placeholder the
//    platform writes for a missing name), i.e. nothing real.
class MCC_EXPORT PLXNotificationCenterPrefixWrapper : public QObject, public PLXNotificationCenter {
    Q_OBJECT
public:
    // Wraps `notificationCenter`; `prefix` is stored without its leading and trailing dots.
    PLXNotificationCenterPrefixWrapper(std::shared_ptr<PLXNotificationCenter> notificationCenter,
                                       const QString& prefix);
    Q_DISABLE_COPY(PLXNotificationCenterPrefixWrapper)

    // The wrapped center.
    const std::shared_ptr<PLXNotificationCenter>& notificationCenter() const { return notificationCenter_; }
    // The prefix, without leading or trailing dots.
    QString prefix() const { return prefix_; }
    // "<prefix>.<name>"; an absent name is written as "(null)".
    QString prefixedName(const std::optional<QString>& name) const;

    // Returns the wrapped center's token.
    ObserverToken addObserverForName(const QString& name, platform::OperationQueue* queue,
                                     Block block) override;
    void addObserver(QObject* observer, const char* selector, const QString& name) override;
    void removeObserver(const QObject* observer) override;
    void removeObserver(const QObject* observer, const std::optional<QString>& name) override;
    void postNotification(const platform::Notification& notification) override;
    void postNotificationName(const QString& name) override;

private:
    const std::shared_ptr<PLXNotificationCenter> notificationCenter_;
    const QString prefix_;
};
