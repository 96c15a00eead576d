#include "marlockCompanionCommon/platform/storage/internal/UserDefaultsStore.h"

#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/internal/FileLock.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform::internal {
namespace {

// Another process holds the lock only while it reads and replaces one small file; even a slow,
// busy disk lets many writers through in this time.
constexpr int lockTimeoutMs = 20000;

QString lastSystemError() {
    return QString::fromLocal8Bit(std::strerror(errno));
}

// Makes the rename that replaced the file durable too.
void syncFolder(const QString& folder) {
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// Writes `bytes` to `temporary`, flushes them to disk and renames the result over `path`, so a
// reader sees the old file or the new one, never a part. The temporary file keeps the mode of
// the file it replaces. Only called with the lock held: the one temporary name is then never
// shared, and one left by a killed writer is simply overwritten.
bool replaceFile(const QString& path, const QString& temporary, const QByteArray& bytes, QString* problem) {
    const QByteArray target = QFile::encodeName(path);
    const QByteArray staging = QFile::encodeName(temporary);
    const int fd = ::open(staging.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
        *problem = lastSystemError();
        return false;
    }
    bool written = true;
    struct stat existing {};
    if (::stat(target.constData(), &existing) == 0)
        written = ::fchmod(fd, existing.st_mode & 07777) == 0;
    for (qsizetype done = 0; written && done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        written = n > 0;
        done += n;
    }
    // The bytes must be on disk before the rename makes them the file.
    written = written && ::fsync(fd) == 0;
    if (!written)
        *problem = lastSystemError();
    if (::close(fd) != 0 && written) {
        *problem = lastSystemError();
        written = false;
    }
    if (written && ::rename(staging.constData(), target.constData()) != 0) {
        *problem = lastSystemError();
        written = false;
    }
    if (!written)
        ::unlink(staging.constData());
    return written;
}

} // namespace

UserDefaultsStore::UserDefaultsStore(QString filePath)
    : path_(std::move(filePath)) {
    clearInterruptedSave();
}

// A writer killed between creating its temporary file and renaming it leaves the file behind.
// Writers touch it only with the lock held, so one seen while holding the lock is nobody's; while
// someone else holds the lock it may be theirs, and is left (the next writer reuses it anyway).
// Nothing is created when there is nothing to clear.
void UserDefaultsStore::clearInterruptedSave() {
    if (!QFileInfo::exists(savingPath()))
        return;
    FileLock lock(lockPath());
    if (!lock.tryLock() || !QFileInfo::exists(savingPath()))
        return;
    if (QFile::remove(savingPath()))
        systemLog(QStringLiteral("User defaults: removed %1, left by an interrupted save").arg(savingPath()));
}

UserDefaultsStore::FileStamp UserDefaultsStore::stamp() const {
    struct stat info {};
    if (::stat(QFile::encodeName(path_).constData(), &info) != 0)
        return {};
    return {true,
            info.st_dev,
            info.st_ino,
            info.st_size,
            qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec,
            qint64(info.st_ctim.tv_sec) * 1000000000 + info.st_ctim.tv_nsec};
}

// The file's values, an empty map when there is no file, or nothing (with `problem` set) when
// the file can't be read or is no property-list dictionary.
std::optional<QVariantMap> UserDefaultsStore::tryRead(QString* problem) const {
    QFile file(path_);
    if (!file.exists())
        return QVariantMap{};
    if (QFileInfo(path_).isDir()) {
        *problem = QStringLiteral("it is a folder");
        return std::nullopt;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        *problem = file.errorString();
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        *problem = file.errorString();
        return std::nullopt;
    }
    Error error;
    const std::optional<QVariant> value = PropertyList::read(bytes, nullptr, &error);
    if (!value) {
        *problem = error.description();
        return std::nullopt;
    }
    if (value->typeId() != QMetaType::QVariantMap) {
        *problem = QStringLiteral("it holds no dictionary");
        return std::nullopt;
    }
    return value->toMap();
}

// With the lock held: the file's values; a broken file is moved aside and counts as empty.
UserDefaultsStore::Loaded UserDefaultsStore::loadUnderLock() {
    QString problem;
    if (std::optional<QVariantMap> values = tryRead(&problem))
        return {*values, true};
    const QString stampText =
        QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd'T'HHmmss.zzz'Z'"));
    QString aside = path_ + QStringLiteral(".corrupt-") + stampText;
    for (int n = 2; QFileInfo::exists(aside); ++n)
        aside = path_ + QStringLiteral(".corrupt-%1-%2").arg(stampText).arg(n);
    // rename(2) would replace an existing file; QFile::rename refuses to, so nothing is lost.
    if (QFile::rename(path_, aside)) {
        systemLog(QStringLiteral("User defaults: cannot read %1 (%2); moved it to %3 and started empty")
                      .arg(path_, problem, aside));
        return {{}, true};
    }
    systemLog(QStringLiteral("User defaults: cannot read %1 (%2) nor move it aside; using no values")
                  .arg(path_, problem));
    return {{}, false};
}

void UserDefaultsStore::adopt(const QVariantMap& fileValues, const FileStamp& fileStamp) {
    QVariantMap merged = fileValues;
    for (const QString& key : std::as_const(pending_)) {
        const auto own = values_.constFind(key);
        if (own != values_.constEnd())
            merged.insert(key, *own);
        else
            merged.remove(key);
    }
    values_ = std::move(merged);
    loadedStamp_ = fileStamp;
}

// Takes in a file another process has replaced since the last read.
void UserDefaultsStore::refresh() {
    const FileStamp current = stamp();
    if (loadedStamp_ && *loadedStamp_ == current)
        return;
    QString problem;
    if (std::optional<QVariantMap> values = tryRead(&problem)) {
        adopt(*values, current);
        return;
    }
    // Moving a broken file aside needs the lock: without it, a good file another process has
    // just written could be taken for the broken one.
    FileLock lock(lockPath());
    if (!lock.lock(lockTimeoutMs)) {
        systemLog(QStringLiteral("User defaults: cannot read %1 (%2); using no values").arg(path_, problem));
        adopt({}, current);
        return;
    }
    // Under the lock the file keeps still, so its stamp now is the stamp of what was loaded (or
    // of its absence, once moved aside).
    const Loaded loaded = loadUnderLock();
    adopt(loaded.values, stamp());
}

QVariant UserDefaultsStore::value(const QString& key) {
    std::lock_guard guard(mutex_);
    refresh();
    const auto stored = values_.constFind(key);
    if (stored != values_.constEnd())
        return *stored;
    return registered_.value(key);
}

void UserDefaultsStore::setValue(const QString& key, const QVariant& value) {
    std::lock_guard guard(mutex_);
    // Taking the file in first keeps the other keys current; this key is pending from now on.
    refresh();
    if (value.isValid())
        values_.insert(key, value);
    else
        values_.remove(key);
    pending_.insert(key);
}

bool UserDefaultsStore::hasPendingChanges() {
    std::lock_guard guard(mutex_);
    return !pending_.isEmpty();
}

void UserDefaultsStore::registerDefaults(const QVariantMap& defaults) {
    std::lock_guard guard(mutex_);
    for (auto it = defaults.begin(); it != defaults.end(); ++it)
        registered_.insert(it.key(), it.value());
}

bool UserDefaultsStore::synchronize() {
    std::lock_guard guard(mutex_);
    const QString folder = QFileInfo(path_).absolutePath();
    if (!QDir().mkpath(folder)) {
        systemLog(QStringLiteral("User defaults: cannot create the folder %1").arg(folder));
        return false;
    }
    FileLock lock(lockPath());
    if (!lock.lock(lockTimeoutMs)) {
        systemLog(QStringLiteral("User defaults: cannot lock %1 (%2)").arg(lockPath(), lock.errorString()));
        return false;
    }
    const Loaded loaded = loadUnderLock();
    if (!loaded.usable)
        return false;
    // Merge as a read would; with nothing pending, that is all.
    adopt(loaded.values, stamp());
    if (pending_.isEmpty())
        return true;
    Error error;
    const std::optional<QByteArray> bytes =
        PropertyList::write(values_, PropertyList::Format::Binary, &error);
    if (!bytes) {
        systemLog(QStringLiteral("User defaults: cannot encode %1 (%2)").arg(path_, error.description()));
        return false;
    }
    QString problem;
    if (!replaceFile(path_, savingPath(), *bytes, &problem)) {
        systemLog(QStringLiteral("User defaults: cannot write %1 (%2)").arg(path_, problem));
        // The stamp must not match, so that the next read takes the file in again.
        loadedStamp_.reset();
        return false;
    }
    syncFolder(folder);
    loadedStamp_ = stamp();
    pending_.clear();
    return true;
}

} // namespace platform::internal
