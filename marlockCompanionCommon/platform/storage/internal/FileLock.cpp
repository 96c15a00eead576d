#include "marlockCompanionCommon/platform/storage/internal/FileLock.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace platform::internal {

FileLock::FileLock(QString path)
    : path_(std::move(path)) {}

FileLock::~FileLock() {
    unlock();
}

bool FileLock::lock(int timeoutMs) {
    if (fd_ >= 0)
        return true;
    // Each lock opens the file anew: flock belongs to the open file description, so two stores
    // of one process exclude each other as two processes do.
    const int fd = ::open(QFile::encodeName(path_).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        error_ = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    const QDeadlineTimer deadline(timeoutMs);
    // Polling with short pauses rather than a blocking flock: the wait must end at the deadline,
    // and a blocked flock can only be interrupted by a signal.
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int failure = errno;
        if ((failure != EWOULDBLOCK && failure != EINTR) || deadline.hasExpired()) {
            error_ = failure == EWOULDBLOCK ? QStringLiteral("held by another writer")
                                            : QString::fromLocal8Bit(std::strerror(failure));
            ::close(fd);
            return false;
        }
        QThread::msleep(2);
    }
    fd_ = fd;
    return true;
}

void FileLock::unlock() {
    if (fd_ < 0)
        return;
    // Closing the only descriptor of this open file releases the lock.
    ::close(fd_);
    fd_ = -1;
}

} // namespace platform::internal
