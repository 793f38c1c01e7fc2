#include "boardUse.h"

#include <fcntl.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "board.h"
#include "fileLock.h"
#include "pmMutexLock.h"

namespace virtualboard {

namespace {

// After a board's last byte, apart from the byte that each transfer locks.
constexpr long USERS_BYTE = 1 << 20;

// Whether the path still leads to this file.
bool isNamed(int fd, const std::string& path)
{
    struct stat opened = {};
    struct stat named = {};
    return fstat(fd, &opened) == 0 && stat(path.c_str(), &named) == 0
           && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// Removes the lock that the runs on a board share, unless a run holds it.
bool removeSemaphore(key_t key, const std::string& path, std::string& error)
{
    const int set = semget(key, 0, 0);
    if (set < 0 && errno == ENOENT) {
        return true;
    }
    if (set >= 0 && semctl(set, 0, GETVAL) == 0) {
        error = "the lock of the board " + path + " is taken; if a killed run left it, "
                + "'pmadmin -a' on the board frees it";
        return false;
    }
    if (set < 0 || semctl(set, 0, IPC_RMID) != 0) {
        error = "cannot remove the lock of the board " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

} // namespace

int useBoard(const std::string& path, std::string& error)
{
    while (createBoard(path, error)) {
        const int fd = openAboveStreams(path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY);
        const bool used = fd >= 0 && lockByte(fd, F_OFD_SETLKW, F_RDLCK, USERS_BYTE) == 0;
        if (!used) {
            error = "cannot use the board " + path + ": " + std::strerror(errno);
        } else if (isNamed(fd, path)) {
            return fd;
        }
        if (fd >= 0) {
            close(fd);
        }
        if (!used) {
            break;
        }
        // It was removed in the meantime: make another one.
    }
    return -1;
}

bool removeBoard(const std::string& path, std::string& error)
{
    const int fd = openAboveStreams(path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        error = "cannot remove the board " + path + ": " + std::strerror(errno);
        return false;
    }
    bool removed = false;
    if (lockByte(fd, F_OFD_SETLK, F_WRLCK, USERS_BYTE) != 0 || !isNamed(fd, path)) {
        error = "the board " + path + " is in use";
    } else if (const BoardAccess board(path.c_str()); !board.isOpen()) {
        error = board.error();
    } else if (removeSemaphore(board.privateKey(PM_MUTEX_KEY), path, error)) {
        std::error_code reason;
        removed = std::filesystem::remove(std::filesystem::canonical(path, reason), reason);
        error = "cannot remove the board " + path + ": " + reason.message();
    }
    close(fd);
    return removed;
}

} // namespace virtualboard
