#include "marlockCompanionCommon/platform/storage/internal/CloudFolderBackend.h"

#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/platform/storage/internal/CloudFileNames.h"

#include <QDir>
#include <QRandomGenerator>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform::internal {
namespace {

using Reason = UbiquitousKeyValueStoreChangeReason;

constexpr int settleMs = 50;
constexpr int retryMs = 2000;
// A write takes milliseconds; a temporary file this old was left by a writer that was killed.
constexpr time_t staleTemporarySeconds = 600;

QString errnoText(int code) {
    return QString::fromLocal8Bit(std::strerror(code));
}

QByteArray encodedPath(const QString& path) {
    return QFile::encodeName(path);
}

// Closes a descriptor when leaving the scope.
class Descriptor {
public:
    explicit Descriptor(int fd)
        : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    // Closes now and tells whether the kernel reported a write error at close.
    bool close() { return ::close(std::exchange(fd_, -1)) == 0; }

private:
    int fd_;
};

bool writeAll(int fd, const QByteArray& bytes) {
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t n =
            ::write(fd, bytes.constData() + written, static_cast<size_t>(bytes.size() - written));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        written += n;
    }
    return true;
}

// Creates the missing folders of `path`, each 0700 (the umask can only take bits away).
bool makeFolders(const QString& path) {
    QString partial;
    for (const QString& part : path.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        partial += QLatin1Char('/') + part;
        if (::mkdir(encodedPath(partial).constData(), 0700) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

} // namespace

CloudFolderBackend::CloudFolderBackend(QString path, bool createIfMissing)
    : path_(QDir::cleanPath(std::move(path)))
    , createIfMissing_(createIfMissing) {
    settle_.setSingleShot(true);
    settle_.setInterval(settleMs);
    connect(&settle_, &QTimer::timeout, this, [this] { processChanges(); });
    retry_.setInterval(retryMs);
    connect(&retry_, &QTimer::timeout, this, [this] { retryAttach(); });
    inotify_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotify_ < 0) {
        logProblem(QStringLiteral("cannot watch the folder %1 (inotify: %2): changes from elsewhere are "
                                  "seen only on synchronize()")
                       .arg(path_, errnoText(errno)));
        return;
    }
    notifier_ = std::make_unique<QSocketNotifier>(inotify_, QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, [this] {
        drainEvents();
        if ((rescan_ || !changedNames_.isEmpty()) && !settle_.isActive())
            settle_.start();
    });
}

CloudFolderBackend::~CloudFolderBackend() {
    notifier_.reset();
    if (inotify_ >= 0)
        ::close(inotify_);
}

QHash<QString, QByteArray> CloudFolderBackend::open(Listener* listener) {
    listener_ = listener;
    if (!attach()) {
        retry_.start();
        return {};
    }
    return scan();
}

bool CloudFolderBackend::attach() {
    const QByteArray folder = encodedPath(path_);
    struct stat info {};
    if (::stat(folder.constData(), &info) != 0 && errno == ENOENT && createIfMissing_ &&
        !makeFolders(path_)) {
        logProblem(QStringLiteral("cannot create the folder %1 (%2): reads are empty until it exists")
                       .arg(path_, errnoText(errno)));
        return false;
    }
    DIR* dir = ::opendir(folder.constData());
    if (!dir) {
        logProblem(QStringLiteral("the folder %1 cannot be read (%2): reads are empty until it can")
                       .arg(path_, errnoText(errno)));
        return false;
    }
    ::closedir(dir);
    if (inotify_ >= 0) {
        const uint32_t events = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF |
                                IN_MOVE_SELF | IN_ONLYDIR;
        watch_ = ::inotify_add_watch(inotify_, folder.constData(), events);
        if (watch_ < 0) {
            logProblem(QStringLiteral("cannot watch the folder %1 (%2): reads are empty until it can")
                           .arg(path_, errnoText(errno)));
            return false;
        }
    }
    if (!lastProblem_.isEmpty())
        systemLog(QStringLiteral("Cloud key-value store: the folder %1 is back").arg(path_));
    lastProblem_.clear();
    available_ = true;
    retry_.stop();
    return true;
}

void CloudFolderBackend::detach(const QString& why) {
    if (watch_ >= 0)
        (void)::inotify_rm_watch(inotify_, watch_); // fails harmlessly when the kernel dropped it already
    watch_ = -1;
    available_ = false;
    changedNames_.clear();
    rescan_ = false;
    settle_.stop();
    logProblem(QStringLiteral("the folder %1 %2: reads are empty until it is back").arg(path_, why));
    listener_->backendDidChange(Reason::accountChange, {}, true);
    retry_.start();
}

void CloudFolderBackend::retryAttach() {
    if (available_ || !attach())
        return;
    reportAll(Reason::accountChange, scan());
}

void CloudFolderBackend::logProblem(const QString& problem) {
    if (problem == lastProblem_)
        return;
    lastProblem_ = problem;
    systemLog(QStringLiteral("Cloud key-value store: ") + problem);
}

QHash<QString, QByteArray> CloudFolderBackend::scan() {
    QHash<QString, QByteArray> values;
    DIR* dir = ::opendir(encodedPath(path_).constData());
    if (!dir)
        return values;
    const time_t now = ::time(nullptr);
    while (const dirent* entry = ::readdir(dir)) {
        const QString name = QFile::decodeName(entry->d_name);
        if (CloudFileNames::isTemporaryFile(name)) {
            // Left by a writer that was killed mid-write; the value it was writing never counted.
            struct stat info {};
            if (::fstatat(dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                now - info.st_mtime > staleTemporarySeconds)
                (void)::unlinkat(dirfd(dir), entry->d_name, 0);
            continue;
        }
        const std::optional<QString> key = CloudFileNames::keyForFileName(name);
        if (!key)
            continue;
        if (std::optional<QByteArray> value = readFile(name))
            values.insert(*key, *value);
    }
    ::closedir(dir);
    return values;
}

std::optional<QByteArray> CloudFolderBackend::readFile(const QString& fileName) const {
    // No symbolic links and nothing but regular files: a FIFO planted in the folder must not
    // block the main thread. Reads stop one byte past the limit, enough for the store to refuse.
    const QByteArray path = encodedPath(path_ + QLatin1Char('/') + fileName);
    Descriptor fd(::open(path.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() < 0) {
        if (errno != ENOENT && errno != ELOOP)
            systemLog(QStringLiteral("Cloud key-value store: cannot read %1 (%2)")
                          .arg(QFile::decodeName(path), errnoText(errno)));
        return std::nullopt;
    }
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return std::nullopt;
    const qsizetype limit = UbiquitousKeyValueStore::maximumValueSize + 1;
    QByteArray bytes(std::min<qsizetype>(info.st_size, limit), Qt::Uninitialized);
    qsizetype filled = 0;
    while (filled < limit) {
        if (filled == bytes.size())
            bytes.resize(std::min<qsizetype>(bytes.size() + 4096, limit));
        const ssize_t n = ::read(fd.get(), bytes.data() + filled, static_cast<size_t>(bytes.size() - filled));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return std::nullopt;
        if (n == 0)
            break;
        filled += n;
    }
    bytes.truncate(filled);
    return bytes;
}

void CloudFolderBackend::write(const QString& key, const std::optional<QByteArray>& value) {
    if (!available_)
        retryAttach();
    if (!available_) {
        systemLog(QStringLiteral("Cloud key-value store: the value of \"%1\" was not written: the folder %2 "
                                 "is not available")
                      .arg(key, path_));
        listener_->backendDidFinishWrite(key, false);
        return;
    }
    const QString name = CloudFileNames::fileNameForKey(key);
    const bool written = value ? writeFile(name, *value) : removeFile(name);
    listener_->backendDidFinishWrite(key, written);
}

// The new value goes to a temporary file in the same folder, reaches the disk, and only then
// takes the key's name in one rename: a reader, a sync engine or a crash sees the old value or
// the new one, never a mix. The folder is synced last so that the rename itself survives a crash.
bool CloudFolderBackend::writeFile(const QString& fileName, const QByteArray& bytes) {
    const QString temporary =
        path_ + QLatin1Char('/') +
        CloudFileNames::temporaryFileName(fileName, ::getpid(), QRandomGenerator::global()->generate());
    const QByteArray temporaryPath = encodedPath(temporary);
    const QByteArray target = encodedPath(path_ + QLatin1Char('/') + fileName);
    Descriptor fd(
        ::open(temporaryPath.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    bool ok = fd.get() >= 0 && ::fchmod(fd.get(), 0600) == 0 && writeAll(fd.get(), bytes) &&
              ::fsync(fd.get()) == 0 && fd.close() &&
              ::rename(temporaryPath.constData(), target.constData()) == 0;
    const int error = errno;
    if (!ok) {
        (void)::unlink(temporaryPath.constData());
        systemLog(QStringLiteral("Cloud key-value store: cannot write %1 (%2)")
                      .arg(QFile::decodeName(target), errnoText(error)));
        return false;
    }
    return syncFolder();
}

bool CloudFolderBackend::removeFile(const QString& fileName) {
    const QByteArray target = encodedPath(path_ + QLatin1Char('/') + fileName);
    if (::unlink(target.constData()) != 0 && errno != ENOENT) {
        systemLog(QStringLiteral("Cloud key-value store: cannot remove %1 (%2)")
                      .arg(QFile::decodeName(target), errnoText(errno)));
        return false;
    }
    return syncFolder();
}

bool CloudFolderBackend::syncFolder() const {
    Descriptor folder(::open(encodedPath(path_).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() < 0 || ::fsync(folder.get()) != 0) {
        systemLog(QStringLiteral("Cloud key-value store: cannot sync the folder %1 (%2)")
                      .arg(path_, errnoText(errno)));
        return false;
    }
    return true;
}

void CloudFolderBackend::drainEvents() {
    if (inotify_ < 0)
        return;
    alignas(inotify_event) char buffer[16 * 1024];
    bool gone = false;
    QString why;
    for (;;) {
        const ssize_t n = ::read(inotify_, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        for (ssize_t offset = 0; offset < n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                rescan_ = true; // the kernel dropped events: only reading everything again is safe
                continue;
            }
            if (event->wd != watch_ || watch_ < 0)
                continue; // a watch given up earlier
            if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) {
                gone = true;
                why = (event->mask & IN_UNMOUNT)     ? QStringLiteral("was unmounted")
                      : (event->mask & IN_MOVE_SELF) ? QStringLiteral("was moved away")
                                                     : QStringLiteral("was deleted");
            } else if (event->len > 0) {
                changedNames_.insert(QFile::decodeName(event->name));
            }
        }
    }
    if (gone && available_)
        detach(why);
}

void CloudFolderBackend::refresh() {
    drainEvents();
    if (rescan_ || !changedNames_.isEmpty()) {
        settle_.stop();
        processChanges();
    }
}

void CloudFolderBackend::processChanges() {
    if (!available_)
        return;
    if (std::exchange(rescan_, false)) {
        changedNames_.clear();
        reportAll(Reason::serverChange, scan());
        return;
    }
    std::vector<Change> changes;
    for (const QString& name : std::exchange(changedNames_, {}))
        if (const std::optional<QString> key = CloudFileNames::keyForFileName(name))
            changes.push_back({*key, readFile(name)});
    if (!changes.empty())
        listener_->backendDidChange(Reason::serverChange, changes, false);
}

void CloudFolderBackend::synchronize() {
    if (!available_) {
        retryAttach();
        return;
    }
    drainEvents();
    if (!available_)
        return;
    settle_.stop();
    changedNames_.clear();
    rescan_ = false;
    reportAll(Reason::serverChange, scan());
}

void CloudFolderBackend::reportAll(Reason reason, const QHash<QString, QByteArray>& values) {
    std::vector<Change> changes;
    changes.reserve(static_cast<size_t>(values.size()));
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        changes.push_back({it.key(), it.value()});
    listener_->backendDidChange(reason, changes, true);
}

} // namespace platform::internal

namespace platform {

std::unique_ptr<UbiquitousKeyValueStoreBackend>
makeFolderUbiquitousKeyValueStoreBackend(const QString& path, bool createIfMissing) {
    return std::make_unique<internal::CloudFolderBackend>(path, createIfMissing);
}

} // namespace platform
