#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>

namespace platform {

// The product's identities, in one place. Each can be overridden by an environment variable so
// that tests and side-by-side installations never touch a user's real data:
//
//   identity                 default                                           variable
//   bundle identifier        org.marlock.companion.desktopapp                  MARLOCK_BUNDLE_IDENTIFIER
//   team prefix              MRLK7Q2X9Z                                         MARLOCK_TEAM_PREFIX
//   application group        <team prefix>.group.<bundle identifier>           MARLOCK_APPLICATION_GROUP
//   keychain identifier      <team prefix>.<bundle identifier>                 MARLOCK_KEYCHAIN_IDENTIFIER
//
// The derived identities follow the overridden parts unless overridden themselves.
// Values are read from the environment on every call.
namespace Identity {

MCC_EXPORT QString bundleIdentifier();
MCC_EXPORT QString teamPrefix();
MCC_EXPORT QString applicationGroup();
MCC_EXPORT QString keychainIdentifier();

} // namespace Identity
} // namespace platform
