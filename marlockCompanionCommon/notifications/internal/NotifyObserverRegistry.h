#pragma once

#include "marlockCompanionCommon/notifications/DarwinNotifyCenter.h"

#include <QHash>

#include <memory>
#include <mutex>
#include <unordered_map>

namespace notifications::internal {

// Who observes which name, for one DarwinNotifyCenter. Both centers (in-memory and D-Bus)
// keep their observers here and fan each received name out through deliver().
//
// Thread-safe. deliver() calls callbacks outside the registry's lock, but holds a per-observer
// gate while calling, which removeEvery() waits for: after removeEvery() returns the observer
// is neither being called nor called again, so it may be destroyed.
class NotifyObserverRegistry {
public:
    explicit NotifyObserverRegistry(DarwinNotifyCenter* owner)
        : owner_(owner) {}
    NotifyObserverRegistry(const NotifyObserverRegistry&) = delete;
    NotifyObserverRegistry& operator=(const NotifyObserverRegistry&) = delete;

    void add(void* observer, DarwinNotifyCenter::Callback callback, const QString& name);
    void remove(void* observer, const QString& name);
    // Removes `observer` everywhere.
    void removeEvery(void* observer);

    QStringList observedNames(const void* observer) const;

    // Calls every observer of `name` once, on the calling thread.
    void deliver(const QString& name);

private:
    // Serialises one observer's callbacks against its final removal.
    struct Gate {
        std::mutex mutex;
        bool open = true;
    };
    struct Registration {
        DarwinNotifyCenter::Callback callback = nullptr;
        std::shared_ptr<Gate> gate;
    };

    DarwinNotifyCenter* const owner_;
    mutable std::mutex mutex_;
    QHash<QString, std::unordered_map<void*, Registration>> byName_;
    std::unordered_map<void*, std::shared_ptr<Gate>> gates_;
};

} // namespace notifications::internal
