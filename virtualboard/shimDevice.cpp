// The shim's device calls: opening the virtual bus, requests on its descriptors
// and their copies. A bus's descriptor is a real one that can do nothing: an
// O_PATH handle of /dev/null. That the kernel still knows it as one says that it
// is the bus's, however it was closed, replaced, inherited or copied.

// The checked and the 64-bit forms are defined here beside the plain ones.
#undef _FORTIFY_SOURCE
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include "shim.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <iterator>

#include "board.h"
#include "i2cDevice.h"

namespace virtualboard {

namespace {

constexpr const char* BUS_PATH = "/dev/i2c-0";
constexpr const char* BUS_PREFIXES[] = {"/dev/i2c-", "/dev/i2c/"};
constexpr int DESCRIPTOR_COUNT = 65536;

// What each of the bus's descriptors is bound to.
std::array<int, DESCRIPTOR_COUNT> addresses{};

bool isBusPath(const char* path)
{
    // The session comes last: joining it opens its file.
    const auto begins = [path](const char* prefix) {
        return std::strncmp(path, prefix, std::strlen(prefix)) == 0;
    };
    return path != nullptr && std::any_of(std::begin(BUS_PREFIXES), std::end(BUS_PREFIXES), begins)
           && joinSession() != nullptr;
}

bool isBusDescriptor(int fd)
{
    if (joinSession() == nullptr || fd < 0 || fd >= DESCRIPTOR_COUNT) {
        return false;
    }
    const int reason = errno;
    static auto* const real = next<int(int, int, ...)>("fcntl");
    const int flags = real(fd, F_GETFL);
    struct stat status = {};
    const bool isBus = flags != -1 && (flags & O_PATH) != 0 && fstat(fd, &status) == 0
                       && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
    errno = reason;
    return isBus;
}

// Opens one of the paths of buses: there is one bus, number 0.
int openBus(const char* path, int flags)
{
    if (std::strcmp(path, BUS_PATH) != 0) {
        errno = ENOENT;
        return -1;
    }
    {
        Session& session = *joinSession();
        const BoardAccess turn(session.board);
        if (const Fault* fault = strikingFault(session, FaultKind::OPEN)) {
            errno = fault->error;
            return -1;
        }
    }
    const int fd = open("/dev/null", O_PATH | (flags & O_CLOEXEC));
    if (fd >= DESCRIPTOR_COUNT) {
        close(fd);
        errno = EMFILE;
        return -1;
    }
    if (fd >= 0) {
        addresses[static_cast<std::size_t>(fd)] = 0;
    }
    return fd;
}

// A copy of a bus's descriptor is bound as the original is.
int copied(int from, int to)
{
    if (to >= 0 && to < DESCRIPTOR_COUNT && isBusDescriptor(to)) {
        addresses[static_cast<std::size_t>(to)] = addresses[static_cast<std::size_t>(from)];
    }
    return to;
}

// The mode is there only if a file may be made.
mode_t modeOf(int flags, va_list arguments)
{
    const bool makes = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    // The callers started the list; the analyzer doesn't look there.
    return makes ? va_arg(arguments, mode_t) : 0; // NOLINT(clang-analyzer-valist.Uninitialized)
}

int openPath(const char* name, int folder, const char* path, int flags, mode_t mode)
{
    return isBusPath(path) ? openBus(path, flags)
                           : next<int(int, const char*, int, ...)>(name)(folder, path, flags, mode);
}

int duplicate(int fd, int command, void* argument, const char* name)
{
    const int result = next<int(int, int, ...)>(name)(fd, command, argument);
    const bool copies = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    return copies ? copied(fd, result) : result;
}

} // namespace

} // namespace virtualboard

using namespace virtualboard;

extern "C" {

// Each form of open goes on to openat's of the same kind.
INTERPOSED int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openPath("openat", AT_FDCWD, path, flags, mode);
}

INTERPOSED int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openPath("openat64", AT_FDCWD, path, flags, mode);
}

INTERPOSED int openat(int folder, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openPath("openat", folder, path, flags, mode);
}

INTERPOSED int openat64(int folder, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openPath("openat64", folder, path, flags, mode);
}

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
    if (isBusDescriptor(fd)) {
        return deviceRequest(*joinSession(), request, argument,
                             addresses[static_cast<std::size_t>(fd)]);
    }
    static auto* const real = next<int(int, unsigned long, ...)>("ioctl");
    return real(fd, request, argument);
}

INTERPOSED int dup(int fd) noexcept
{
    static auto* const real = next<int(int)>("dup");
    return copied(fd, real(fd));
}

INTERPOSED int dup2(int from, int to) noexcept
{
    static auto* const real = next<int(int, int)>("dup2");
    return copied(from, real(from, to));
}

INTERPOSED int dup3(int from, int to, int flags) noexcept
{
    static auto* const real = next<int(int, int, int)>("dup3");
    return copied(from, real(from, to, flags));
}

INTERPOSED int fcntl(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return duplicate(fd, command, argument, "fcntl");
}

INTERPOSED int fcntl64(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return duplicate(fd, command, argument, "fcntl64");
}

} // extern "C"
