#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/keychain/KeychainStatus.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStoreBackend.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <chrono>
#include <memory>
#include <optional>

namespace platform {

class UserDefaults;

// Where and how the cloud key-value store reaches a WebDAV share (Nextcloud, ownCloud, Apache
// mod_dav, any RFC 4918 server) instead of a synced folder: the server's HTTPS URL, the
// collection below it that holds one resource per key, the account, and optionally the SHA-256
// fingerprint of a self-signed server certificate the user has chosen to trust.
//
// The password is never part of the settings: it lives in the keychain (an internet password
// whose service is the server URL and whose account is the user name) and is read once, when the
// backend is made. Nothing here or in the backend writes it to the settings or to the log.
//
// The default store uses WebDAV when "UbiquitousKeyValueStoreBackend" is "webdav" (environment
// MARLOCK_CLOUD_BACKEND first); the other keys, each with its environment variable read first:
//   "UbiquitousKeyValueStoreWebdavURL"          MARLOCK_WEBDAV_URL          https://host/path/
//   "UbiquitousKeyValueStoreWebdavCollection"   MARLOCK_WEBDAV_COLLECTION   a folder name
//   "UbiquitousKeyValueStoreWebdavUser"         MARLOCK_WEBDAV_USER
//   "UbiquitousKeyValueStoreWebdavCertificateSHA256"  MARLOCK_WEBDAV_CERTIFICATE_SHA256  hex
//
//   platform::WebdavConfiguration webdav;
//   webdav.serverUrl = QUrl("https://cloud.example.org/remote.php/dav/files/ann/");
//   webdav.collection = "Marlock"; webdav.user = "ann";
//   (void)platform::WebdavConfiguration::savePassword(webdav.serverUrl, webdav.user, appPassword);
struct MCC_EXPORT WebdavConfiguration {
    static inline const QString backendKey = QStringLiteral("UbiquitousKeyValueStoreBackend");
    static inline const QString urlKey = QStringLiteral("UbiquitousKeyValueStoreWebdavURL");
    static inline const QString collectionKey = QStringLiteral("UbiquitousKeyValueStoreWebdavCollection");
    static inline const QString userKey = QStringLiteral("UbiquitousKeyValueStoreWebdavUser");
    static inline const QString certificateKey =
        QStringLiteral("UbiquitousKeyValueStoreWebdavCertificateSHA256");

    // The server's base URL; must be https. The collection is made below it.
    QUrl serverUrl;
    // The collection's name (one path segment); created with MKCOL when missing.
    QString collection;
    QString user;
    QString password;
    // SHA-256 of the server certificate (DER) to accept even though no system authority vouches
    // for it. When set, the server must present exactly this certificate.
    QByteArray pinnedCertificateSha256;
    // How often the collection is checked for other devices' changes; doubled after each failed
    // attempt while the server is unreachable, up to 16 times.
    std::chrono::milliseconds pollInterval = std::chrono::seconds(30);
    // The longest a single request may take from start to end, slow servers included.
    std::chrono::milliseconds requestTimeout = std::chrono::seconds(30);

    // The collection's URL: serverUrl + the encoded collection name + '/'.
    QUrl collectionUrl() const;

    // Whether `backendKey` (or MARLOCK_CLOUD_BACKEND) selects WebDAV in `suite`.
    static bool isSelected(UserDefaults* suite);
    // The configuration in `suite` (environment first), the password from the shared keychain.
    static WebdavConfiguration fromSettings(UserDefaults* suite);
    // Parses a fingerprint written as hex, with or without ':' between bytes; empty when malformed.
    static QByteArray parseFingerprint(const QString& text);

    // Saves or reads the account's password in the shared keychain.
    [[nodiscard]] static KeychainStatus savePassword(const QUrl& serverUrl, const QString& user,
                                                     const QString& password);
    static std::optional<QString> storedPassword(const QUrl& serverUrl, const QString& user);
};

// A backend over the WebDAV collection of `configuration` (see UbiquitousKeyValueStoreBackend.h
// for the contract). Every request runs on the event loop; nothing waits on the network.
//  - Values are read at open and whenever a PROPFIND (depth 1, getetag only) of the collection,
//    made on synchronize() and every poll interval, shows a changed entity tag.
//  - A write names the version it replaces: If-Match with the last tag seen, If-None-Match: *
//    for a new key. When another device wrote in between (412), the write is dropped, the
//    server's value is read and reported as a server change, and the log says so.
//  - Whatever keeps a write from the server (no network, a timeout, 5xx, refused credentials,
//    an untrusted certificate, a garbled or oversized answer), it waits, in order, and is tried
//    again with back-off; the store keeps answering with its value and the log says why, once
//    per problem. Only a configuration that cannot work (no https URL, a collection name that is
//    not one folder name) ends writes as failed.
MCC_EXPORT std::unique_ptr<UbiquitousKeyValueStoreBackend>
makeWebdavUbiquitousKeyValueStoreBackend(const WebdavConfiguration& configuration);

} // namespace platform
