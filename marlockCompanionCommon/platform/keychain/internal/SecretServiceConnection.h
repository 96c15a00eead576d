#pragma once

// One connection to the freedesktop Secret Service, private to the Secret Service backend.
#include "marlockCompanionCommon/platform/keychain/KeychainStatus.h"

#include <QByteArray>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace platform::internal {

// Attribute names to values, as the service keeps them on an item.
using SecretAttributes = std::map<std::string, std::string>;

// What a search found: item object paths, those of unlocked and of locked collections apart.
struct SecretSearchResult {
    std::vector<std::string> unlocked;
    std::vector<std::string> locked;
};

// What the service tells of an item besides its secret.
struct SecretItemProperties {
    SecretAttributes attributes;
    std::string label;
    quint64 created = 0; // seconds since the epoch
};

// A connection to the Secret Service with an open session (secrets travel encrypted by it).
// Every member is one D-Bus call, except unlock(), which may wait for the user at a prompt.
// Failures come back as keychain statuses and are logged (reportSecretServiceFailure). Thread-
// safe: members may be called from several threads at once.
class SecretServiceConnection {
public:
    ~SecretServiceConnection();
    SecretServiceConnection(const SecretServiceConnection&) = delete;
    SecretServiceConnection& operator=(const SecretServiceConnection&) = delete;

    // Connects to the session bus's Secret Service and opens a session; notAvailable without
    // a bus or a service.
    static KeychainStatus open(std::unique_ptr<SecretServiceConnection>* connection);

    // The items in any collection whose attributes include `attributes`.
    KeychainStatus search(const SecretAttributes& attributes, SecretSearchResult* result) const;
    // Unlocks items or collections (the service may prompt); authFailed unless all of them are.
    KeychainStatus unlock(const std::vector<std::string>& paths) const;

    KeychainStatus properties(const std::string& item, SecretItemProperties* properties) const;
    // The secrets of `items`, by path; authFailed when one of them is locked.
    KeychainStatus secrets(const std::vector<std::string>& items,
                           std::map<std::string, QByteArray>* secrets) const;

    KeychainStatus setSecret(const std::string& item, const QByteArray& secret) const;
    KeychainStatus setAttributes(const std::string& item, const SecretAttributes& attributes) const;
    KeychainStatus setLabel(const std::string& item, const std::string& label) const;
    // Creates an item in `collection`, or replaces the one with exactly these attributes.
    KeychainStatus createItem(const std::string& collection, const std::string& label,
                              const SecretAttributes& attributes, const QByteArray& secret) const;
    KeychainStatus deleteItem(const std::string& item) const;

private:
    // The libsecret service object; kept out of this header, which Qt code includes first.
    struct Handle;
    explicit SecretServiceConnection(std::unique_ptr<Handle> handle);

    std::unique_ptr<Handle> handle_;
};

} // namespace platform::internal
