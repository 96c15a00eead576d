#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace platform {

// Item classes, as the keychain names them.
namespace KeychainClass {
inline const QString genericPassword = QStringLiteral("genp");
inline const QString internetPassword = QStringLiteral("inet");
inline const QString certificate = QStringLiteral("cert");
inline const QString key = QStringLiteral("keys");
inline const QString identity = QStringLiteral("idnt");
} // namespace KeychainClass

// Accessibility classes, recorded on every item. The Secret Service has no notion of them (a
// collection is either locked or unlocked as a whole), so on Linux they are labels only.
namespace KeychainAccessible {
inline const QString whenUnlocked = QStringLiteral("ak");
inline const QString afterFirstUnlock = QStringLiteral("ck");
inline const QString always = QStringLiteral("dk");
inline const QString whenUnlockedThisDeviceOnly = QStringLiteral("aku");
inline const QString afterFirstUnlockThisDeviceOnly = QStringLiteral("cku");
inline const QString alwaysThisDeviceOnly = QStringLiteral("dku");
} // namespace KeychainAccessible

// An access object: a label and the applications trusted to read an item without asking.
//
// What it protects on Linux: nothing by itself. The Secret Service has no per-application
// access control: every program of the user that can reach the session bus can read every item
// of an unlocked collection. The label and the trusted paths are recorded on the item (as its
// label and as attributes), so that a person inspecting the keyring sees which programs the item
// was meant for, and so that a future backend with real access control can enforce them. What
// does protect the item is the collection's lock (the login keyring is encrypted at rest with
// the user's password and locked while the user is logged out) and the Unix user boundary.
struct MCC_EXPORT KeychainAccess {
    QString label;
    QStringList trustedApplications; // absolute paths, the calling program first
    bool operator==(const KeychainAccess&) const = default;
};

// A keychain item reference: the attributes that identify and describe one stored item, without
// its secret. An item is identified by (itemClass, service, account).
struct MCC_EXPORT KeychainItem {
    QString itemClass;
    QString service;
    QString account;
    QString accessible;
    std::optional<KeychainAccess> access;
    bool operator==(const KeychainItem&) const = default;
};

// What selects items: a class and, when given, an exact service and account. An absent service
// or account matches any.
struct MCC_EXPORT KeychainQuery {
    QString itemClass;
    std::optional<QString> service;
    std::optional<QString> account;
};

// What an add or update writes. Absent members are left as they are (update) or take their
// defaults (add: empty data, accessible whenUnlocked, no access object).
struct MCC_EXPORT KeychainAttributes {
    std::optional<QByteArray> data;
    std::optional<QString> accessible;
    std::optional<KeychainAccess> access;
};

} // namespace platform
