#include "marlockCompanionCommon/notifications/internal/NotifyObserverRegistry.h"

#include <algorithm>
#include <vector>

namespace notifications::internal {

void NotifyObserverRegistry::add(void* observer, DarwinNotifyCenter::Callback callback, const QString& name) {
    std::lock_guard lock(mutex_);
    std::shared_ptr<Gate>& gate = gates_[observer];
    if (!gate)
        gate = std::make_shared<Gate>();
    byName_[name][observer] = Registration{callback, gate};
}

void NotifyObserverRegistry::remove(void* observer, const QString& name) {
    std::lock_guard lock(mutex_);
    auto it = byName_.find(name);
    if (it != byName_.end() && it->erase(observer) && it->empty())
        byName_.erase(it);
}

void NotifyObserverRegistry::removeEvery(void* observer) {
    std::shared_ptr<Gate> gate;
    {
        std::lock_guard lock(mutex_);
        for (auto it = byName_.begin(); it != byName_.end();) {
            if (it->erase(observer) && it->empty())
                it = byName_.erase(it);
            else
                ++it;
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
