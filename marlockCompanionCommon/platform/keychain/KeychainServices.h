#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/keychain/KeychainBackend.h"

#include <memory>

namespace platform {

// Keychain services: generic items stored by class, service and account, with the keychain's
// status codes (KeychainStatus.h). The shared instance keeps items in the Secret Service; tests
// make their own over the in-memory backend.
//
//   auto keychain = platform::KeychainServices::shared();
//   QByteArray secret;
//   if (keychain->copyMatchingData({KeychainClass::genericPassword, "svc", "acct"}, &secret) == 0)
//       use(secret);
//
// Thread-safe as far as the backend is (both backends are).
class MCC_EXPORT KeychainServices {
public:
    explicit KeychainServices(std::unique_ptr<KeychainBackend> backend);
    ~KeychainServices();
    KeychainServices(const KeychainServices&) = delete;
    KeychainServices& operator=(const KeychainServices&) = delete;

    // The process's keychain: the Secret Service, unless replaced with setShared().
    static std::shared_ptr<KeychainServices> shared();
    // Replaces the process's keychain (a host with its own store, or a test); null restores the
    // Secret Service.
    static void setShared(std::shared_ptr<KeychainServices> services);

    // Adds one item built from the query's class, service and account (empty when absent) and
    // `attributes`. duplicateItem when such an item exists.
    [[nodiscard]] KeychainStatus itemAdd(const KeychainQuery& query, const KeychainAttributes& attributes);

    // Applies `attributes` to every item matching `query`; itemNotFound when none does.
    [[nodiscard]] KeychainStatus itemUpdate(const KeychainQuery& query, const KeychainAttributes& attributes);

    // The data of the first item matching `query` (match limit one, return data).
    [[nodiscard]] KeychainStatus copyMatchingData(const KeychainQuery& query, QByteArray* data);

    // A reference to the first item matching `query` (match limit one, return reference).
    [[nodiscard]] KeychainStatus copyMatchingItem(const KeychainQuery& query,
                                                  std::unique_ptr<KeychainItem>* item);

    // Deletes every item matching `query`; itemNotFound when none does.
    [[nodiscard]] KeychainStatus itemDelete(const KeychainQuery& query);

    // Deletes the item `item` refers to; itemNotFound when it is gone.
    [[nodiscard]] KeychainStatus itemDelete(const KeychainItem& item);

    // The older lookup of a generic password by service and account, both as bytes (UTF-8) and
    // each matching any when empty. On success `content` gets the secret and `item` a reference,
    // when they are not null.
    [[nodiscard]] KeychainStatus findGenericPassword(const QByteArray& service, const QByteArray& account,
                                                     QByteArray* content,
                                                     std::unique_ptr<KeychainItem>* item);

    // A trusted application for the program at `path`, or for the calling program when absent:
    // the absolute, canonical path. param for an empty or relative path.
    [[nodiscard]] static KeychainStatus trustedApplicationCreateFromPath(const std::optional<QString>& path,
                                                                         QString* application);

    // An access object from a label and trusted applications (see KeychainAccess for what it does
    // and does not protect on Linux). param for an empty label.
    [[nodiscard]] static KeychainStatus
    accessCreate(const QString& label, const QStringList& trustedApplications, KeychainAccess* access);

    // The message text for a status (same as keychainErrorMessage).
    static QString copyErrorMessageString(KeychainStatus status);

private:
    std::unique_ptr<KeychainBackend> backend_;
};

} // namespace platform
