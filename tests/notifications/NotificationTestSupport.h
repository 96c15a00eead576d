#pragma once

#include "marlockCompanionCommon/notifications/DarwinNotifyCenter.h"
#include "marlockCompanionCommon/notifications/LocalDarwinNotifyCenter.h"

#include <QUuid>

#include <memory>
#include <string>

namespace notificationtests {

// The two services the center's contract is checked against: an in-memory one, and the real
// session bus (scripts/with-session gives each test run a private one).
enum class Service { InMemory, SessionBus };

inline std::string serviceName(Service service) {
    return service == Service::InMemory ? "InMemory" : "SessionBus";
}

// Owns the in-memory service; the session bus one lives for the process.
class ServiceHolder {
public:
    explicit ServiceHolder(Service service) {
        if (service == Service::InMemory)
            local_ = std::make_unique<LocalDarwinNotifyCenter>();
    }
    DarwinNotifyCenter* get() const {
        return local_ ? static_cast<DarwinNotifyCenter*>(local_.get()) : DarwinNotifyCenter::systemCenter();
    }

private:
    std::unique_ptr<LocalDarwinNotifyCenter> local_;
};

// A name no other test (or test run on the same bus) uses.
inline QString uniqueName(const QString& stem) {
    return QStringLiteral("test.%1.%2").arg(stem, QUuid::createUuid().toString(QUuid::Id128));
}

} // namespace notificationtests
