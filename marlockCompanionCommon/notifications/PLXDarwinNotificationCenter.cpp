#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"

#include "marlockCompanionCommon/notifications/DarwinNotifyCenter.h"
#include "marlockCompanionCommon/notifications/PLXNotificationCenterPrefixWrapper.h"
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
    if (!queue)
        queue = platform::OperationQueue::mainQueue();
    auto token = std::make_shared<QObject>();
    auto delivery = [queue, name, block = std::move(block)] {
        queue->addOperation([name, block] { block(platform::Notification{name, nullptr, {}}); });
    };
    px_addBlock(std::move(delivery), token.get(), name, token);
    return token;
}

void PLXDarwinNotificationCenter::addObserver(QObject* observer, const char* selector, const QString& name) {
    if (!observer || !selector)
        return;
    const QMetaMethod method = findMethod(observer, selector);
    if (!method.isValid())
        qWarning("PLXDarwinNotificationCenter: %s has no method %s(platform::Notification) or %s()",
                 observer->metaObject()->className(), selector, selector);
    auto delivery = [name, weakObserver = QPointer<QObject>(observer), method] {
        platform::OperationQueue::mainQueue()->addOperation([name, weakObserver, method] {
            QObject* target = weakObserver.data();
            if (!target || !method.isValid())
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
