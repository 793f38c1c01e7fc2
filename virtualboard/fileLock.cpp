#include "fileLock.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>

#include "descriptor.h"

namespace virtualboard {

int openAboveStreams(const char* path, int flags)
{
    const int fd = open(path, flags | O_CLOEXEC, 0666);
    if (fd < 0 || fd > STDERR_FILENO) {
        return fd;
    }
    const int above = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    closeKeepingErrno(fd);
    return above;
}

// Not by flock(2), which a network file system makes a lock of every byte: a board has two locks.
int lockByte(int fd, int command, short type, long byte)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return fcntl(fd, command, &lock);
}

FileLock::FileLock(const char* path)
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_signals);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState);
    m_fd = openAboveStreams(path, O_RDWR | O_NONBLOCK | O_NOCTTY);
    if (m_fd < 0 || lockByte(m_fd, F_OFD_SETLKW, F_WRLCK, 0) != 0) {
        m_error = errno;
    }
}

FileLock::~FileLock()
{
    if (m_fd >= 0) {
        // Unlock explicitly: a child forked meanwhile may hold the descriptor, too.
        lockByte(m_fd, F_OFD_SETLK, F_UNLCK, 0);
        close(m_fd);
    }
    pthread_setcancelstate(m_cancelState, nullptr);
    pthread_sigmask(SIG_SETMASK, &m_signals, nullptr);
}

} // namespace virtualboard
