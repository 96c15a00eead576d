#include "marlockCompanionCommon/notifications/LocalDarwinNotifyCenter.h"

#include "marlockCompanionCommon/notifications/internal/NotifyObserverRegistry.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

using notifications::internal::NotifyObserverRegistry;

LocalDarwinNotifyCenter::LocalDarwinNotifyCenter()
    : registry_(std::make_shared<NotifyObserverRegistry>(this)) {}

LocalDarwinNotifyCenter::~LocalDarwinNotifyCenter() = default;

void LocalDarwinNotifyCenter::addObserver(void* observer, Callback callback, const QString& name) {
    registry_->add(observer, callback, name);
}

void LocalDarwinNotifyCenter::removeObserver(void* observer, const QString& name) {
    registry_->remove(observer, name);
}

void LocalDarwinNotifyCenter::removeEveryObserver(void* observer) {
    registry_->removeEvery(observer);
}

void LocalDarwinNotifyCenter::postNotification(const QString& name) {
    std::weak_ptr<NotifyObserverRegistry> registry = registry_;
    platform::dispatchAsyncMain([registry, name] {
        if (auto alive = registry.lock())
            alive->deliver(name);
    });
}

QStringList LocalDarwinNotifyCenter::observedNames(const void* observer) const {
    return registry_->observedNames(observer);
}
