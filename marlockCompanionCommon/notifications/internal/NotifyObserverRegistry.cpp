#include "marlockCompanionCommon/notifications/internal/NotifyObserverRegistry.h"

#include <algorithm>
#include <vector>

namespace notifications::internal {

bool NotifyObserverRegistry::add(void* observer, DarwinNotifyCenter::Callback callback, const QString& name) {
    std::lock_guard lock(mutex_);
    std::shared_ptr<Gate>& gate = gates_[observer];
    if (!gate)
        gate = std::make_shared<Gate>();
    auto& observers = byName_[name];
    const bool first = observers.empty();
    observers[observer] = Registration{callback, gate};
    return first;
}

bool NotifyObserverRegistry::remove(void* observer, const QString& name) {
    std::lock_guard lock(mutex_);
    auto it = byName_.find(name);
    if (it == byName_.end() || it->erase(observer) == 0)
        return false;
    if (!it->empty())
        return false;
    byName_.erase(it);
    return true;
}

QStringList NotifyObserverRegistry::removeEvery(void* observer) {
    QStringList emptied;
    std::shared_ptr<Gate> gate;
    {
        std::lock_guard lock(mutex_);
        for (auto it = byName_.begin(); it != byName_.end();) {
            if (it->erase(observer) && it->empty()) {
                emptied << it.key();
                it = byName_.erase(it);
            } else {
                ++it;
            }
        }
        if (auto found = gates_.find(observer); found != gates_.end()) {
            gate = std::move(found->second);
            gates_.erase(found);
        }
    }
    // Taken outside the registry's lock: a callback in progress holds the gate and may take
    // the observer's own locks, which in turn may be held by someone calling add() or remove().
    if (gate) {
        std::lock_guard gateLock(gate->mutex);
        gate->open = false;
    }
    return emptied;
}

QStringList NotifyObserverRegistry::observedNames(const void* observer) const {
    QStringList names;
    std::lock_guard lock(mutex_);
    for (auto it = byName_.cbegin(); it != byName_.cend(); ++it)
        if (it->count(const_cast<void*>(observer)))
            names << it.key();
    names.sort();
    return names;
}

bool NotifyObserverRegistry::isObserved(const QString& name) const {
    std::lock_guard lock(mutex_);
    return byName_.contains(name);
}

void NotifyObserverRegistry::deliver(const QString& name) {
    std::vector<std::pair<void*, Registration>> targets;
    {
        std::lock_guard lock(mutex_);
        auto it = byName_.constFind(name);
        if (it == byName_.cend())
            return;
        targets.assign(it->begin(), it->end());
    }
    for (const auto& [observer, registration] : targets) {
        std::lock_guard gateLock(registration.gate->mutex);
        if (registration.gate->open)
            registration.callback(owner_, observer, name, nullptr, QVariantMap());
    }
}

} // namespace notifications::internal
