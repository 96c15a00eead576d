#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/keychain/KeychainItem.h"
#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

namespace platform {
class KeychainServices;
}

// The error domain of FXKeychain. Codes are keychain statuses (-25300: no such item, -25293:
// access refused, …), or FXKeychain::undecodableDataError.
inline const QString FXKeychainErrorDomain = QStringLiteral("FXKeychainErrorDomain");

// Keeps small values, such as the sync passcode, in the user's keychain under names of the
// caller's choosing, so they are encrypted at rest and shared by the app and its widget. Every
// key gets a generic-password item of its own, found again by the store's service plus the key
// (as the item's account). Values are strings (stored as their UTF-8
// bytes), and data, numbers, booleans, dates, arrays and dictionaries (stored as binary property
// lists); reading tells them apart by sniffing the bytes. Keyed archives found in the keychain
// are never unarchived.
//
// Failures come back as false or an absent value plus an FXKeychainErrorDomain error, and are
// written to the system log (a missing item is reported but never logged).
//
//   FXKeychain& keychain = FXKeychain::defaultKeychain();
//   keychain.setObject(QStringLiteral("secret"), QStringLiteral("password"));
//   QString password = keychain.objectForKey(QStringLiteral("password")).toString();
//
// A store holds no state but its settings; use one from one thread at a time.
class MCC_EXPORT FXKeychain {
public:
    // Code for bytes that are neither a property list nor UTF-8 text.
    static constexpr qint64 undecodableDataError = 3874;

    // The process's store: service = the bundle identifier, no access group, accessibility 0.
    // Created once, on first use, thread-safely.
    static FXKeychain& defaultKeychain();

    // `service` goes into every item query when it is not empty. `accessGroup` is kept but never
    // used: items are scoped by service and account only. `accessibility` indexes the table of
    // KeychainAccessible values (0 whenUnlocked … 5 alwaysThisDeviceOnly). `services` defaults
    // to KeychainServices::shared().
    explicit FXKeychain(std::optional<QString> service = std::nullopt,
                        std::optional<QString> accessGroup = std::nullopt, unsigned accessibility = 0,
                        std::shared_ptr<platform::KeychainServices> services = nullptr);
    ~FXKeychain();
    FXKeychain(const FXKeychain&) = delete;
    FXKeychain& operator=(const FXKeychain&) = delete;

    std::optional<QString> service() const { return service_; }
    std::optional<QString> accessGroup() const { return accessGroup_; }
    // Applies to later stores. An index above 5 makes the next store throw std::out_of_range.
    unsigned accessibility() const { return accessibility_; }
    void setAccessibility(unsigned accessibility) { accessibility_ = accessibility; }

    // The item's raw bytes. A missing item sets code -25300 in `error` (without logging).
    [[nodiscard]] std::optional<QByteArray> dataForKey(const QString& key,
                                                       platform::Error* error = nullptr) const;

    // The decoded value, or an invalid QVariant (with `error` set) when absent or undecodable.
    [[nodiscard]] QVariant objectForKey(const QString& key, platform::Error* error = nullptr) const;
    QVariant objectForKeyedSubscript(const QString& key) const;

    // Stores `object` (an invalid QVariant removes the key), applying `access` to the item
    // whether it is created or updated. Every string and property-list value reads back equal,
    // strings holding NUL or starting with "bplist" included. Note: when the key is new and
    // `error` is given, `error` is left holding -25300 from the existence check although the
    // store succeeds. An object with no property-list form (a type a property list cannot hold)
    // removes the value stored before and sets the encoding error (3851); a property-list value
    // that cannot be written all the same (nested deeper than 256 levels, a date outside years 1
    // to 9999) returns false with that error and keeps the stored value.
    [[nodiscard]] bool setObject(const QVariant& object, const QString& key,
                                 const platform::KeychainAccess* access, platform::Error* error);
    [[nodiscard]] bool setObject(const QVariant& object, const QString& key,
                                 platform::Error* error = nullptr);
    void setObjectForKeyedSubscript(const QVariant& object, const QString& key);
    // Removing a key that does not exist succeeds.
    [[nodiscard]] bool removeObjectForKey(const QString& key, platform::Error* error = nullptr);

    // Deletes every item of `secClass` (a KeychainClass value) the process can reach, whatever
    // its service. No such item counts as success.
    [[nodiscard]] bool deleteAllKeysForSecClass(const QString& secClass, platform::Error* error = nullptr);
    // Deletes every item of all five classes, stopping at the first failure. Returns true without
    // an `error` to report into, even after a failure.
    bool resetKeychain(platform::Error* error = nullptr);

    // A reference to the key's item, owned by the caller, or null.
    // Warning: writes the item's content, i.e. the stored secret, to the system log (a diagnostic
    // this store has always made, kept so that its log output stays the same). It is the one call
    // of the library that logs a secret: don't call it for items that hold passcodes outside of
    // diagnostics.
    std::unique_ptr<platform::KeychainItem> newKeychainItemForKey(const QString& key,
                                                                  platform::Error* error = nullptr);

private:
    platform::KeychainQuery query(const QString& key) const;

    std::optional<QString> service_;
    std::optional<QString> accessGroup_;
    unsigned accessibility_ = 0;
    std::shared_ptr<platform::KeychainServices> services_;
};
