#pragma once

#include "marlockCommon/TokenRecord.h"

#include <QString>

namespace companion {

// One token of this machine as the token store keeps it: its record and the identifier of its
// keychain item. The identifier is a random UUID, stable while the token exists, and says
// nothing about the token.
struct StoredToken {
    QString id;
    marlockCommon::TokenRecord record;

    // How people see the token: "Issuer (account)", or whichever of the two is set, or
    // "Unnamed token".
    QString displayName() const;

    bool operator==(const StoredToken&) const = default;
};

} // namespace companion
