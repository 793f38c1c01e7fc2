// The shim's device calls: opening the virtual bus, and requests on its descriptors. Behind each is
// an empty file of its own, whose offset all copies of the descriptor share, as they share what the
// kernel keeps: by dup, fork and exec.

// The checked and the 64-bit forms are defined here beside the plain ones.
#undef _FORTIFY_SOURCE
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include "shim.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "bus.h"
#include "command.h"
#include "i2cDevice.h"
#include "pmupgrade/runLock.h"
#include "session.h"

namespace virtualboard {

namespace {

constexpr const char* BUS_FOLDER = "/dev";
constexpr const char* BUS_PREFIX = "i2c-";
constexpr const char* BUS_NAME = "i2c-0"; // there is one bus

// Mode of a bus's file. The sticky bit, which means nothing on a file, distinguishes it.
constexpr mode_t BUS_FILE_MODE = S_ISVTX | S_IRUSR | S_IWUSR;

// The name of an I2C device in /dev, if the path leads to one, however it is written; else null.
const char* busName(int folder, const char* path)
{
    const char* slash = path == nullptr ? nullptr : std::strrchr(path, '/');
    const char* name = slash == nullptr ? path : slash + 1;
    // Check the session last: joining it opens its file.
    if (name == nullptr || std::strncmp(name, BUS_PREFIX, std::strlen(BUS_PREFIX)) != 0
        || joinSession() == nullptr) {
        return nullptr;
    }
    std::string parent(path, static_cast<std::size_t>(name - path));
    if (path[0] != '/') {
        parent.insert(0,
                      folder == AT_FDCWD ? "./" : "/proc/self/fd/" + std::to_string(folder) + "/");
    }
    const int reason = errno;
    char resolved[PATH_MAX];
    const bool isDevice =
        realpath(parent.c_str(), resolved) != nullptr && std::strcmp(resolved, BUS_FOLDER) == 0;
    errno = reason;
    return isDevice ? name : nullptr;
}

int openBus(const char* name, int flags)
{
    if (std::strcmp(name, BUS_NAME) != 0) {
        errno = ENOENT;
        return -1;
    }
    Session& session = *joinSession();
    {
        const FileLock turn = takeTurn(session);
        if (const Fault* fault = strikingFault(session, FaultKind::OPEN)) {
            errno = fault->error;
            return -1;
        }
    }
    std::string path = std::string(session.folder) + "/" + BUS_FILE_PREFIX + "XXXXXX";
    const int fd = mkostemp(path.data(), flags & O_CLOEXEC);
    if (fd >= 0) {
        fchmod(fd, BUS_FILE_MODE);
    }
    return fd;
}

bool isBusDescriptor(int fd)
{
    const int reason = errno;
    struct stat64 status = {};
    const bool isBus = joinSession() != nullptr && fstat64(fd, &status) == 0
                       && status.st_mode == (S_IFREG | BUS_FILE_MODE);
    errno = reason;
    return isBus;
}

int openPath(const char* function, int folder, const char* path, int flags, mode_t mode)
{
    if (const char* name = busName(folder, path)) {
        return openBus(name, flags);
    }
    // The board's own file stands for the lock: a rehearsal keeps nobody from a real board.
    if (path != nullptr && std::strcmp(path, RUN_LOCK) == 0 && joinSession() != nullptr) {
        return next<int(int, const char*, int, ...)>(function)(AT_FDCWD, joinSession()->board,
                                                               O_RDONLY | (flags & O_CLOEXEC));
    }
    return next<int(int, const char*, int, ...)>(function)(folder, path, flags, mode);
}

// Whether a driver has the address that is asked for.
bool isTaken(Session& session, unsigned long request, const void* argument)
{
    if (request != I2C_SLAVE
        || reinterpret_cast<std::uintptr_t>(argument) != Command::CHIP_ADDRESS) {
        return false;
    }
    const FileLock turn = takeTurn(session);
    return strikingFault(session, FaultKind::BUSY) != nullptr;
}

int makeRequest(const char* name, int fd, unsigned long request, void* argument)
{
    if (!isBusDescriptor(fd)) {
        return next<int(int, unsigned long, ...)>(name)(fd, request, argument);
    }
    Session& session = *joinSession();
    if (isTaken(session, request, argument)) {
        errno = EBUSY;
        return -1;
    }
    const auto bound = static_cast<unsigned int>(lseek64(fd, 0, SEEK_CUR) / BUS_FILE_STRIDE);
    unsigned int address = bound;
    const int result =
        deviceRequest(std::bind_front(transfer, std::ref(session)), request, argument, address);
    if (address != bound) {
        lseek64(fd, address * BUS_FILE_STRIDE, SEEK_SET);
    }
    return result;
}

} // namespace

} // namespace virtualboard

using namespace virtualboard;

extern "C" {

// The body of a form of open, which goes on to `function`, openat's of the same kind. The mode is
// there only if a file may be made.
#define OPEN_PATH(function, folder)                                                                \
    va_list arguments;                                                                             \
    va_start(arguments, flags);                                                                    \
    const bool makes = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;                 \
    const mode_t mode = makes ? va_arg(arguments, mode_t) : 0;                                     \
    va_end(arguments);                                                                             \
    return openPath(function, folder, path, flags, mode);

INTERPOSED int open(const char* path, int flags, ...){OPEN_PATH("openat", AT_FDCWD)}

INTERPOSED int open64(const char* path, int flags, ...){OPEN_PATH("openat64", AT_FDCWD)}

INTERPOSED int openat(int folder, const char* path, int flags, ...){OPEN_PATH("openat", folder)}

INTERPOSED int openat64(int folder, const char* path, int flags, ...){OPEN_PATH("openat64", folder)}

// What open becomes in programs built with FORTIFY_SOURCE.
INTERPOSED int __open_2(const char* path, int flags)
{
    return openPath("__openat_2", AT_FDCWD, path, flags, 0);
}

INTERPOSED int __open64_2(const char* path, int flags)
{
    return openPath("__openat64_2", AT_FDCWD, path, flags, 0);
}

INTERPOSED int __openat_2(int folder, const char* path, int flags)
{
    return openPath("__openat_2", folder, path, flags, 0);
}

INTERPOSED int __openat64_2(int folder, const char* path, int flags)
{
    return openPath("__openat64_2", folder, path, flags, 0);
}

INTERPOSED int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return makeRequest("ioctl", fd, request, argument);
}

// What ioctl becomes in programs of a 32-bit machine whose times have 64 bits.
INTERPOSED int __ioctl_time64(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return makeRequest("__ioctl_time64", fd, request, argument);
}

} // extern "C"
