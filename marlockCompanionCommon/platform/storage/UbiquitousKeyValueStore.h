#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStoreBackend.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <memory>
#include <optional>

namespace platform {

// Posted on NotificationCenter::defaultCenter(), on the main thread with the store as object, when
// values changed from outside this store, or when a write was refused for its size. User info:
// UbiquitousKeyValueStoreChangeReasonKey (qint64, a UbiquitousKeyValueStoreChangeReason) and
// UbiquitousKeyValueStoreChangedKeysKey (QStringList).
inline const QString UbiquitousKeyValueStoreDidChangeExternallyNotification =
    QStringLiteral("NSUbiquitousKeyValueStoreDidChangeExternallyNotification");
inline const QString UbiquitousKeyValueStoreChangeReasonKey =
    QStringLiteral("NSUbiquitousKeyValueStoreChangeReasonKey");
inline const QString UbiquitousKeyValueStoreChangedKeysKey =
    QStringLiteral("NSUbiquitousKeyValueStoreChangedKeysKey");

// A small key-value store of byte values that the user's machines share: the product keeps its
// encrypted token data here. This store never talks to a network itself. Its default backend is a
// folder, and the user points it at a folder that a sync engine carries between machines
// (Syncthing, a Nextcloud or ownCloud client folder, any synced directory).
//
// The folder of the default store is, in this order: the environment variable
// MARLOCK_CLOUD_FOLDER; the string under "UbiquitousKeyValueStoreFolder" in the application
// group's settings suite; $XDG_DATA_HOME/marlock-companion/cloud (~/.local/share/… when unset),
// which alone is created when missing (0700; files are 0600). A configured folder is never created,
// so a drive that is not mounted is not mistaken for an empty folder on the disk below it.
//
// Promises:
//  - Reads never wait: they answer from a replica in memory, after taking in the file events
//    already queued (so a value another process of this machine wrote before saying so is seen).
//  - Writes replace a file atomically (temporary file, fsync, rename, fsync of the folder): no
//    reader, no sync engine, no crash ever sees half a value.
//  - Changes made by anyone else — another process, the sync engine, another device — are posted
//    as UbiquitousKeyValueStoreDidChangeExternallyNotification, bursts together; this store's own
//    writes never are. When two devices write at once, the value the sync engine settles on wins.
//  - Limits as on the platform: a key is 1 to 64 UTF-8 bytes; a value over 1 MiB, or a write that
//    would take the store (keys and values) over 1 MiB, is refused and posted with reason
//    quotaViolationChange. A stored value over 1 MiB, written by someone else, is not read.
//  - A missing, unreadable or vanished folder is logged once and reads as empty, with reason
//    accountChange; the store is back, with the same reason, once the folder is.
//
// Main thread only.
//
//   auto* store = platform::UbiquitousKeyValueStore::defaultStore();
//   store->setData(container, QStringLiteral("tokens"));
//   std::optional<QByteArray> back = store->dataForKey(QStringLiteral("tokens"));
class MCC_EXPORT UbiquitousKeyValueStore : public QObject {
    Q_OBJECT
public:
    static constexpr qsizetype maximumKeyLength = 64; // UTF-8 bytes
    static constexpr qsizetype maximumValueSize = 1024 * 1024;
    static constexpr qsizetype maximumTotalSize = 1024 * 1024;
    // The settings key naming the default store's folder (see above).
    static inline const QString folderKey = QStringLiteral("UbiquitousKeyValueStoreFolder");

    // The process's store over the folder named above, created on first use; lives for the process.
    static UbiquitousKeyValueStore* defaultStore();
    // The folder the default store uses (or would use), and whether it is the default one.
    static QString defaultFolderPath(bool* isDefault = nullptr);

    // A store over `backend`, for hosts with storage of their own and for tests.
    explicit UbiquitousKeyValueStore(std::unique_ptr<UbiquitousKeyValueStoreBackend> backend,
                                     QObject* parent = nullptr);
    ~UbiquitousKeyValueStore() override;
    Q_DISABLE_COPY(UbiquitousKeyValueStore)

    // Re-checks the storage for changes (announced as usual). Always true: nothing here can fail
    // that is not already logged.
    bool synchronize();

    // The value under `key`, or absent.
    std::optional<QByteArray> dataForKey(const QString& key);
    // Stores `value` under `key`, unless the key or the sizes are refused (see above).
    void setData(const QByteArray& value, const QString& key);
    void removeObjectForKey(const QString& key);

    // Every key with a value.
    QStringList allKeys() const;

private:
    class Replica;
    std::unique_ptr<Replica> d;
};

} // namespace platform
