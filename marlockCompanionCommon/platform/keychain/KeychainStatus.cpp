#include "marlockCompanionCommon/platform/keychain/KeychainStatus.h"

namespace platform {

QString keychainErrorMessage(KeychainStatus status) {
    using namespace KeychainStatusCode;
    switch (status) {
    case success:
        return QStringLiteral("No error.");
    case io:
        return QStringLiteral("Talking to the keychain failed: an I/O error, or no answer in time.");
    case param:
        return QStringLiteral("One or more parameters passed to the keychain were not valid.");
    case userCanceled:
        return QStringLiteral("The user canceled the operation.");
    case internalComponent:
        return QStringLiteral("An internal component of the keychain failed.");
    case notAvailable:
        return QStringLiteral("No keychain is available: there is no Secret Service on the session bus.");
    case authFailed:
        return QStringLiteral(
            "The keychain refused access: the collection is locked or the request was denied.");
    case duplicateItem:
        return QStringLiteral("The item already exists in the keychain.");
    case itemNotFound:
        return QStringLiteral("The item could not be found in the keychain.");
    case noDefaultKeychain:
        return QStringLiteral("There is no default keychain: the Secret Service has no default collection.");
    default:
        return QStringLiteral("Unknown keychain status %1.").arg(status);
    }
}

} // namespace platform
