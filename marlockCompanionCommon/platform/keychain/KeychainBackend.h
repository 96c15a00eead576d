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

// What a find hands back of each matching item, and how many. Backends skip the work a caller
// does not ask for (the Secret Service: a round trip per item for attributes, one for all data).
struct MCC_EXPORT KeychainMatch {
    bool data = false;      // the secret bytes
    bool attributes = true; // the item's attributes (KeychainRecord::item)
    bool limitOne = false;  // only the first (oldest) match
};

// Where keychain items live. KeychainServices is written against this; each backend is one
// source file, and the same contract tests run against every backend.
//
// Every call returns a KeychainStatus. Items are unique by (class, service, account).
class MCC_EXPORT KeychainBackend {
public:
    virtual ~KeychainBackend() = default;

    // Every item matching `query` (or the oldest one, with limitOne), oldest first, with what
    // `match` asks for. itemNotFound when none matches; authFailed when a match exists but its
    // collection stays locked.
    virtual KeychainStatus find(const KeychainQuery& query, const KeychainMatch& match,
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
// notAvailable without a session bus or Secret Service; noDefaultKeychain when the service has no
// default collection; authFailed for a collection that stays locked (a refused or impossible
// unlock prompt); io when a call fails on the way or gets no answer in time. Each failure that is
// not simply "not found" or "duplicate" is written to the system log with the service's own
// message (a repeat of the same message is not). The connection to the service is opened on
// first use and kept. May block while the service prompts the user.
MCC_EXPORT std::unique_ptr<KeychainBackend> makeSecretServiceKeychainBackend();

} // namespace platform
