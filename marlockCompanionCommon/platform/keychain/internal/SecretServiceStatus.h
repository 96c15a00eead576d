#pragma once

// What a failed libsecret or D-Bus call means in the keychain's numbering, and the one log line
// that keeps the service's own words. Private to the Secret Service backend.
#include "marlockCompanionCommon/platform/keychain/KeychainStatus.h"

#include <glib.h>

namespace platform::internal {

// What a failed call was aimed at. The same "no such object" answer means a missing item for an
// item, a missing default collection for the collection, and a broken connection otherwise.
enum class SecretServiceTarget { connection, service, collection, item };

// The keychain status for `error`.
KeychainStatus secretServiceStatus(const GError* error, SecretServiceTarget target);

// secretServiceStatus(), and a system-log line with `call` and the error's message, unless the
// status is an ordinary answer (not found, duplicate) or the line would repeat the last one
// logged: a caller retrying against a missing service must not fill the log.
KeychainStatus reportSecretServiceFailure(const char* call, const GError* error, SecretServiceTarget target);

} // namespace platform::internal
