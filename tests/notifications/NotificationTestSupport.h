#pragma once

#include "marlockCompanionCommon/notifications/LocalDarwinNotifyCenter.h"
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"

#include <QUuid>

#include <gtest/gtest.h>

#include <memory>

namespace notificationtests {

// The two services the center's contract is checked against: an in-memory one, and the real
// session bus (scripts/with-session gives each test run a private one).
enum class Service { InMemory, SessionBus };

// A center on the service under test; the in-memory service lives as long as the test.
class CenterOnServiceTest : public ::testing::TestWithParam<Service> {
protected:
    std::unique_ptr<LocalDarwinNotifyCenter> local =
        GetParam() == Service::InMemory ? std::make_unique<LocalDarwinNotifyCenter>() : nullptr;
    DarwinNotifyCenter* service = local ? local.get() : DarwinNotifyCenter::systemCenter();
    PLXDarwinNotificationCenter center{service};
};

inline std::string serviceName(const ::testing::TestParamInfo<Service>& info) {
    return info.param == Service::InMemory ? "InMemory" : "SessionBus";
}

#define INSTANTIATE_ON_BOTH_SERVICES(suite)                                                                  \
    INSTANTIATE_TEST_SUITE_P(                                                                                \
        Services, suite,                                                                                     \
        ::testing::Values(notificationtests::Service::InMemory, notificationtests::Service::SessionBus),     \
        notificationtests::serviceName)

// A name no other test (or test run on the same bus) uses.
inline QString uniqueName(const QString& stem) {
    return QStringLiteral("test.%1.%2").arg(stem, QUuid::createUuid().toString(QUuid::Id128));
}

} // namespace notificationtests
