#pragma once

#include <QString>

namespace platform::internal {

// An exclusive lock between processes (and between open stores of one process) on a lock file,
// held with flock(2). The kernel drops it when its holder closes the file or dies, so a writer
// killed at any moment never leaves the others waiting, and a lock file left on disk (empty, or
// written by some older locking scheme) means nothing by itself. The file is created when
// missing and never removed: removing it would let a waiter lock a file nobody else can find.
//
//   FileLock lock(path + ".lock");
//   if (!lock.lock(20000))
//       return false;
//   … read, replace the file …
//   // released when `lock` goes
class FileLock {
public:
    explicit FileLock(QString path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Takes the lock, trying until `timeoutMs` have passed (0: one attempt). False when the
    // lock file cannot be opened or another holder kept the lock all along; errorString() says
    // which.
    [[nodiscard]] bool lock(int timeoutMs);
    [[nodiscard]] bool tryLock() { return lock(0); }
    void unlock();
    bool isLocked() const { return fd_ >= 0; }
    QString errorString() const { return error_; }

private:
    const QString path_;
    int fd_ = -1;
    QString error_;
};

} // namespace platform::internal
