#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/keychain/KeychainItem.h"
#include "marlockCompanionCommon/platform/keychain/KeychainStatus.h"

#include <memory>
#include <vector>

namespace platform {

// One stored item: its attributes and its secret bytes.
struct MCC_EXPORT KeychainRecord {
    KeychainItem item;
    QByteArray data;
};

// Where keychain items live. KeychainServices is written against this; each backend is one
// source file, and the same contract tests run against every backend.
//
// Every call returns a KeychainStatus. Items are unique by (class, service, account).
class MCC_EXPORT KeychainBackend {
public:
    virtual ~KeychainBackend() = default;

    // Every item matching `query`, oldest first, with its data when `withData`. itemNotFound
    // when none matches; authFailed when a match exists but its collection stays locked.
    virtual KeychainStatus find(const KeychainQuery& query, bool withData,
                                std::vector<KeychainRecord>* out) = 0;

    // Stores a new item; duplicateItem when its (class, service, account) is taken.
    virtual KeychainStatus add(const KeychainRecord& record) = 0;

    // Applies the present members of `changes` to every item matching `query`.
    virtual KeychainStatus update(const KeychainQuery& query, const KeychainAttributes& changes) = 0;

    // Deletes every item matching `query`; itemNotFound when none does.
    virtual KeychainStatus remove(const KeychainQuery& query) = 0;
};

// Items kept in this process's memory, for unit tests. Thread-safe.
MCC_EXPORT std::unique_ptr<KeychainBackend> makeMemoryKeychainBackend();

// Items kept by the freedesktop Secret Service (gnome-keyring, KeePassXC, KWallet) through
// libsecret, in the user's default collection, under the schema "org.marlock.Keychain" with the
// attributes "class", "service", "account", "accessible" (and "access-label",
// "trusted-applications" when an access object is given). The secret is the item's raw bytes.
// notAvailable without a session bus or Secret Service; authFailed for a collection that stays
// locked (a refused or impossible unlock prompt). May block while the service prompts the user.
MCC_EXPORT std::unique_ptr<KeychainBackend> makeSecretServiceKeychainBackend();

} // namespace platform
