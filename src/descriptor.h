// What has to be done with care when files are made and closed. Used by pmfile and the virtual
// board.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

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

/// Gives the file a name that nothing has yet, in place of its own. False with EEXIST if something
/// has it, with another errno where that can't be done in one step.
inline bool takeFreeName(const char* file, const char* name)
{
    if (link(file, name) == 0) {
        unlink(file); // should that fail, the file has its name all the same
        return true;
    }
#ifdef HAVE_RENAMEAT2 // not every file system has links, nor every C library this function
    if (errno != EEXIST) {
        return renameat2(AT_FDCWD, file, AT_FDCWD, name, RENAME_NOREPLACE) == 0;
    }
#endif
    return false;
}
