#include "runLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr mode_t LOCK_MODE = 0644;

/// Opens the lock, which is made where it is not there. In a folder that everybody may write to,
/// the kernel refuses to make what somebody else has made.
int openLock()
{
    const int fd = open(RUN_LOCK, O_RDONLY | O_NOFOLLOW);
    return fd >= 0 || errno != ENOENT ? fd
                                      : open(RUN_LOCK, O_RDONLY | O_CREAT | O_NOFOLLOW, LOCK_MODE);
}

} // namespace

bool takeRunLock(std::string& error)
{
    const int fd = openLock();
    if (fd < 0) {
        error = std::string(RUN_LOCK) + ": can't be opened: " + std::strerror(errno);
        return false;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
        return true; // open until the process ends
    }
    error = errno == EWOULDBLOCK
                ? "another pmupgrade is at work, or what a killed one has started still is"
                : std::string(RUN_LOCK) + ": can't be locked: " + std::strerror(errno);
    close(fd);
    return false;
}
