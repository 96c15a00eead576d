#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"

#include "marlockCompanionCommon/notifications/DarwinNotifyCenter.h"
#include "marlockCompanionCommon/notifications/PLXNotificationCenterPrefixWrapper.h"
#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include <QMetaMethod>

namespace {

// The service's callback: the observer is always the center that registered it.
void plx_darwin_notification_center_observed_notification(DarwinNotifyCenter*, void* observer,
                                                          const QString& name, const void*,
                                                          const QVariantMap&) {
    static_cast<PLXDarwinNotificationCenter*>(observer)->notifyNotificationName(name);
}

// `selector(platform::Notification)` first, then `selector()`.
QMetaMethod findMethod(const QObject* observer, const char* selector) {
    const QMetaObject* meta = observer->metaObject();
    for (const QByteArray& signature :
         {QByteArray(selector) + "(platform::Notification)", QByteArray(selector) + "()"}) {
        const int index = meta->indexOfMethod(QMetaObject::normalizedSignature(signature.constData()));
        if (index >= 0)
            return meta->method(index);
    }
    return {};
}

// Why `name` cannot travel as a notification name, or an empty string when it can. A D-Bus
// string is UTF-8 without NUL: a NUL would cut the name short on the wire, and an unpaired
// surrogate would arrive as '?', so either would reach a different name than the one observed.
QString whyNotDeliverable(const QString& name) {
    if (name.isEmpty())
        return QStringLiteral("it is empty");
    if (name.size() > PLXDarwinNotificationCenter::maximumNameLength)
        return QStringLiteral("it is %1 UTF-16 units long, more than %2")
            .arg(name.size())
            .arg(PLXDarwinNotificationCenter::maximumNameLength);
    for (qsizetype i = 0; i < name.size(); ++i) {
        const QChar c = name.at(i);
        if (c.isNull())
            return QStringLiteral("it holds a NUL character at %1").arg(i);
        if (c.isHighSurrogate() && i + 1 < name.size() && name.at(i + 1).isLowSurrogate())
            ++i;
        else if (c.isSurrogate())
            return QStringLiteral("it holds an unpaired surrogate at %1").arg(i);
    }
    return {};
}

// A name that cannot travel is a programming error (names are the program's own constants):
// stopping here finds it the first time the code runs, where a refusal that only logged would
// leave an observer that never fires.
void requireDeliverable(const QString& name, const char* operation) {
    const QString problem = whyNotDeliverable(name);
    if (problem.isEmpty())
        return;
    // The name as a log can show it: what made it unusable must not also cut the message short.
    QString shown;
    for (qsizetype i = 0; i < name.size() && i < 80; ++i) {
        const QChar c = name.at(i);
        shown += c.isNull() || c.isSurrogate()
                     ? QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'))
                     : QString(c);
    }
    if (name.size() > 80)
        shown += QStringLiteral("…");
    platform::fatalError(QStringLiteral("PLXDarwinNotificationCenter: cannot %1 the name \"%2\": %3")
                             .arg(QLatin1String(operation), shown, problem));
}

// Drops entries whose observer has been destroyed; the table then holds live observers only.
template <typename Table> void purgeDestroyed(Table& table) {
    std::erase_if(table, [](const auto& item) { return item.second.observer.isNull(); });
}

} // namespace

std::shared_ptr<PLXDarwinNotificationCenter> PLXDarwinNotificationCenter::defaultCenter() {
    // Never destroyed: the bus and the application may already be gone at static destruction.
    static auto* center = new std::shared_ptr<PLXDarwinNotificationCenter>(new PLXDarwinNotificationCenter);
    return *center;
}

std::shared_ptr<PLXNotificationCenter> PLXDarwinNotificationCenter::centerWithPrefix(const QString& prefix) {
    return std::make_shared<PLXNotificationCenterPrefixWrapper>(defaultCenter(), prefix);
}

std::shared_ptr<PLXNotificationCenter> PLXDarwinNotificationCenter::otpDarwinNotificationCenter() {
    return centerWithPrefix(platform::Identity::bundleIdentifier());
}

PLXDarwinNotificationCenter::PLXDarwinNotificationCenter()
    : PLXDarwinNotificationCenter(DarwinNotifyCenter::systemCenter()) {}

PLXDarwinNotificationCenter::PLXDarwinNotificationCenter(DarwinNotifyCenter* darwinNotificationCenter)
    : darwinNotificationCenter_(darwinNotificationCenter) {
    qRegisterMetaType<platform::Notification>();
}

PLXDarwinNotificationCenter::~PLXDarwinNotificationCenter() {
    darwinNotificationCenter_->removeEveryObserver(this);
}

void PLXDarwinNotificationCenter::px_addBlock(DeliveryBlock block, QObject* observer, const QString& name,
                                              std::shared_ptr<QObject> retainObserver) {
    std::lock_guard lock(lock_);
    auto table = registeredNotifications_.find(name);
    if (table != registeredNotifications_.end())
        purgeDestroyed(*table);
    if (table == registeredNotifications_.end() || table->empty()) {
        // A table emptied only by its observers' deaths still has its registration; registering
        // the same observer and name again is harmless.
        darwinNotificationCenter_->addObserver(this, plx_darwin_notification_center_observed_notification,
                                               name);
        table = registeredNotifications_.insert(name, ObserverTable());
    }
    ObserverEntry& entry = (*table)[observer];
    entry.observer = observer;
    entry.blocks.push_back(std::move(block));
    if (retainObserver)
        retainedObserverSet_[observer] = std::move(retainObserver);
}

PLXNotificationCenter::ObserverToken
PLXDarwinNotificationCenter::addObserverForName(const QString& name, platform::OperationQueue* queue,
                                                Block block) {
    requireDeliverable(name, "observe");
    // The caller owns the queue and may destroy it before removing the observer: from then on
    // posts find the weak reference empty and run nothing.
    const platform::WeakOperationQueue target(queue ? queue : platform::OperationQueue::mainQueue());
    auto token = std::make_shared<QObject>();
    auto delivery = [target, name, block = std::move(block)] {
        target.addOperation([name, block] { block(platform::Notification{name, nullptr, {}}); });
    };
    px_addBlock(std::move(delivery), token.get(), name, token);
    return token;
}

void PLXDarwinNotificationCenter::addObserver(QObject* observer, const char* selector, const QString& name) {
    if (!observer)
        return;
    requireDeliverable(name, "observe");
    const QMetaMethod method = selector ? findMethod(observer, selector) : QMetaMethod();
    // A misspelt or undeclared method would otherwise be a registration that never does anything.
    if (!method.isValid())
        platform::fatalError(QStringLiteral("PLXDarwinNotificationCenter: %1 has no slot or invokable method "
                                            "%2(platform::Notification) or %2() to observe \"%3\"")
                                 .arg(QLatin1String(observer->metaObject()->className()),
                                      QLatin1String(selector ? selector : "(null)"), name));
    auto delivery = [name, weakObserver = QPointer<QObject>(observer), method] {
        platform::OperationQueue::mainQueue()->addOperation([name, weakObserver, method] {
            QObject* target = weakObserver.data();
            if (!target)
                return;
            if (method.parameterCount() == 1) {
                const platform::Notification notification{name, nullptr, {}};
                method.invoke(target, Qt::DirectConnection, Q_ARG(platform::Notification, notification));
            } else {
                method.invoke(target, Qt::DirectConnection);
            }
        });
    };
    px_addBlock(std::move(delivery), observer, name, nullptr);
}

void PLXDarwinNotificationCenter::px_removeObserver(const QObject* observer, const QString& name) {
    std::lock_guard lock(lock_);
    auto table = registeredNotifications_.find(name);
    if (table != registeredNotifications_.end()) {
        table->erase(observer);
        purgeDestroyed(*table);
    }
    if (table == registeredNotifications_.end() || table->empty()) {
        if (table != registeredNotifications_.end())
            registeredNotifications_.erase(table);
        darwinNotificationCenter_->removeObserver(this, name);
    }
    retainedObserverSet_.erase(observer);
}

void PLXDarwinNotificationCenter::removeObserver(const QObject* observer,
                                                 const std::optional<QString>& name) {
    if (!observer)
        return;
    if (!name) {
        removeObserver(observer);
        return;
    }
    px_removeObserver(observer, *name);
}

void PLXDarwinNotificationCenter::removeObserver(const QObject* observer) {
    if (!observer)
        return;
    std::lock_guard lock(lock_);
    const QStringList names = registeredNotifications_.keys();
    for (const QString& name : names)
        px_removeObserver(observer, name);
}

void PLXDarwinNotificationCenter::postNotification(const platform::Notification& notification) {
    // The service carries names only: object and user info stay behind.
    postNotificationName(notification.name);
}

void PLXDarwinNotificationCenter::postNotificationName(const QString& name) {
    requireDeliverable(name, "post");
    darwinNotificationCenter_->postNotification(name);
}

void PLXDarwinNotificationCenter::notifyNotificationName(const QString& name) {
    std::lock_guard lock(lock_);
    auto table = registeredNotifications_.find(name);
    if (table == registeredNotifications_.end())
        return;
    purgeDestroyed(*table);
    // Each block only enqueues work, so running them under the lock runs no caller code here.
    for (const auto& [observer, entry] : *table)
        for (const DeliveryBlock& block : entry.blocks)
            block();
}

QStringList PLXDarwinNotificationCenter::registeredNotificationNames() const {
    std::lock_guard lock(lock_);
    QStringList names = registeredNotifications_.keys();
    names.sort();
    return names;
}

int PLXDarwinNotificationCenter::observerCount(const QString& name) const {
    std::lock_guard lock(lock_);
    auto table = registeredNotifications_.constFind(name);
    if (table == registeredNotifications_.cend())
        return 0;
    return static_cast<int>(std::count_if(table->begin(), table->end(),
                                          [](const auto& item) { return !item.second.observer.isNull(); }));
}

int PLXDarwinNotificationCenter::retainedObserverCount() const {
    std::lock_guard lock(lock_);
    return static_cast<int>(retainedObserverSet_.size());
}
