// The Secret Service backend's failure statuses, each seen from a process of its own: without a
// session bus, and with the default collection locked.
#include "marlockCompanionCommon/platform/KeychainServices.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace platform;
namespace Code = platform::KeychainStatusCode;

TEST(KeychainSecretServiceDeathTest, WithoutASessionBusTheKeychainIsNotAvailable) {
    // The child connects for the first time after its bus address points nowhere.
    EXPECT_EXIT(
        {
            setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/marlock-test-bus", 1);
            KeychainServices keychain(makeSecretServiceKeychainBackend());
            QByteArray data;
            const KeychainStatus read = keychain.copyMatchingData(
                {KeychainClass::genericPassword, QStringLiteral("s"), QStringLiteral("a")}, &data);
            const KeychainStatus add = keychain.itemAdd(
                {KeychainClass::genericPassword, QStringLiteral("s"), QStringLiteral("a")}, {});
            std::_Exit(read == Code::notAvailable && add == Code::notAvailable ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}
