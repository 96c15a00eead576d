#pragma once

#include <QSet>
#include <QString>
#include <QVariantMap>

#include <mutex>
#include <optional>

#include <sys/types.h>

namespace platform::internal {

// The engine behind UserDefaults: the values of one binary property-list file, shared with
// other processes through that file.
//
// Reads answer from memory, but first notice (one stat) whether another process has replaced
// the file since it was last read, and take the new content in under this process's pending
// changes. synchronize() takes the kernel lock on "<file>.lock" (see FileLock), re-reads the file,
// lays the pending changes (removals included) over it and replaces it atomically: written to
// "<file>.saving", fsynced, renamed over the file, folder fsynced. A "<file>.saving" left by a
// killed writer is removed when a store opens the file. A file that cannot be read or parsed is
// logged and renamed to "<file>.corrupt-<UTC time>" (never overwritten), and counts as empty.
//
// Several stores may serve one file, in one process or in many. Thread-safe. Values must
// already be in property-list form (see PropertyList.h); the caller checks them.
class UserDefaultsStore {
public:
    explicit UserDefaultsStore(QString filePath);
    UserDefaultsStore(const UserDefaultsStore&) = delete;
    UserDefaultsStore& operator=(const UserDefaultsStore&) = delete;

    QString filePath() const { return path_; }

    // The stored value, else the registered one, else an invalid QVariant.
    QVariant value(const QString& key);
    // Stores `value` in memory until the next synchronize(); an invalid QVariant removes the key.
    void setValue(const QString& key, const QVariant& value);
    void registerDefaults(const QVariantMap& defaults);
    // Whether changes wait for synchronize().
    bool hasPendingChanges();

    // Writes the pending changes and takes in the file's content. False when the file could not
    // be locked or written; the changes then stay pending.
    [[nodiscard]] bool synchronize();

private:
    // What identifies one version of the file: a replacement always changes inode or times.
    struct FileStamp {
        bool exists = false;
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        qint64 modifiedNs = 0;
        qint64 changedNs = 0;
        bool operator==(const FileStamp&) const = default;
    };
    struct Loaded {
        QVariantMap values;
        bool usable = true; // false when a broken file could not be moved aside
    };

    FileStamp stamp() const;
    std::optional<QVariantMap> tryRead(QString* problem) const;
    Loaded loadUnderLock();
    void refresh();
    void adopt(const QVariantMap& fileValues, const FileStamp& stamp);
    void clearInterruptedSave();
    QString lockPath() const { return path_ + QStringLiteral(".lock"); }
    QString savingPath() const { return path_ + QStringLiteral(".saving"); }

    const QString path_;
    std::mutex mutex_;
    QVariantMap values_; // the file's content as last read, with the pending changes on top
    QSet<QString> pending_;
    QVariantMap registered_;
    std::optional<FileStamp> loadedStamp_;
};

} // namespace platform::internal
