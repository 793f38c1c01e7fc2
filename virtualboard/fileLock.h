// A lock on a file between processes and threads. Used for a board's file and for what the
// processes of a session share.
#pragma once

#include <csignal>

namespace virtualboard {

/// Like open(2) with O_CLOEXEC, but never gives a standard stream's descriptor: what a program
/// prints there must not reach the file.
int openAboveStreams(const char* path, int flags);

/// Locks one byte of a file, which needs no byte there, on behalf of the open file, until that is
/// closed everywhere: shared (F_RDLCK) or alone (F_WRLCK), or gives it back (F_UNLCK). `command` is
/// F_OFD_SETLK, or F_OFD_SETLKW to wait for others. Returns 0 or -1 with errno, EAGAIN if others
/// are in the way.
int lockByte(int fd, int command, short type, long byte);

/// Holds the lock of an existing file for as long as the object lives. Everyone else waits, this
/// process's threads too. Meanwhile signals wait and the thread is not cancelled: a handler that
/// wants the lock would wait for ever, and a cancelled thread would leave its work half done.
class FileLock {
public:
    explicit FileLock(const char* path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    /// 0, or the errno with which locking failed.
    int error() const { return m_error; }
    /// The file, open for reading and writing; owned by the lock.
    int fd() const { return m_fd; }

private:
    sigset_t m_signals{};
    int m_cancelState = 0;
    int m_fd = -1;
    int m_error = 0;
};

} // namespace virtualboard
