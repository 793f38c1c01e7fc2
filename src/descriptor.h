// What has to be done with care when files are made and closed. Used by pmfile and the virtual
// board.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

/// Closes the descriptor after a failure; errno goes on to tell that.
inline void closeKeepingErrno(int fd)
{
    const int reason = errno;
    close(fd);
    errno = reason;
}

/// The rights with which open(2) would make a file for everybody: 0666 but for the mask of the
/// process, which can only be read by setting it.
inline mode_t modeOfNewFile()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}
