#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>
#include <QtGlobal>

namespace platform {

// A keychain status: 0 for success, else a negative code in the keychain's own numbering, so
// codes mean the same here as in any other keychain-services program.
using KeychainStatus = qint32;

namespace KeychainStatusCode {
constexpr KeychainStatus success = 0;
// Talking to the keychain failed on the way: a read or write error, or no answer in time.
constexpr KeychainStatus io = -36;
// The call's parameters were not valid (an empty item class, a relative application path).
constexpr KeychainStatus param = -50;
// The user dismissed a prompt.
constexpr KeychainStatus userCanceled = -128;
// An internal component failed: a failure none of the other codes describes.
constexpr KeychainStatus internalComponent = -2070;
// No keychain service: no session bus, or no Secret Service on it.
constexpr KeychainStatus notAvailable = -25291;
// Authorisation failed: the collection is locked and could not be unlocked, or access was refused.
constexpr KeychainStatus authFailed = -25293;
// An item with the same class, service and account exists already.
constexpr KeychainStatus duplicateItem = -25299;
// No item matches.
constexpr KeychainStatus itemNotFound = -25300;
// There is no default keychain: the Secret Service has no default collection to store into.
constexpr KeychainStatus noDefaultKeychain = -25307;
} // namespace KeychainStatusCode

// A sentence describing `status`, for people ("The item could not be found in the keychain.").
// Unknown codes give "Unknown keychain status <code>.".
MCC_EXPORT QString keychainErrorMessage(KeychainStatus status);

} // namespace platform
