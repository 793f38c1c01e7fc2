// Preloaded into every candidate of the comparison: a bus that answers at once, so that what
// remains is the candidate's own time. /dev/i2c-0 is the memory file of a virtual board, mapped;
// that board's own device and chip answer. Each request still enters the kernel once, as on a
// board, where the file refuses it: strace sees what the candidate asked for. Waits for the chip
// are skipped, too, unless the environment asks for them.
#include <fcntl.h>
#include <linux/i2c.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "board.h"
#include "i2cDevice.h"
#include "shim.h"

namespace {

using virtualboard::next;

constexpr const char* BUS_PATH = "/dev/i2c-0";
/// Environment: the memory file, made by virtual-board.
constexpr const char* BOARD_VARIABLE = "INSTANT_BUS_BOARD";
/// Environment: waits last as long as they are asked to.
constexpr const char* WAITS_VARIABLE = "INSTANT_BUS_WAITS";

virtualboard::BoardState* g_board = nullptr;
int g_busFd = -1;
unsigned int g_address = 0; ///< that g_busFd is bound to

int openBoard(int flags)
{
    const char* file = std::getenv(BOARD_VARIABLE);
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, file, flags));
    void* memory = mmap(nullptr, sizeof(*g_board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) {
        return -1;
    }
    g_board = static_cast<virtualboard::BoardState*>(memory);
    return fd;
}

int transfer(i2c_msg* messages, std::size_t count)
{
    virtualboard::Chip chip(g_board->chip);
    for (std::size_t i = 0; i < count; ++i) {
        const i2c_msg& message = messages[i];
        const bool readFollows = i + 1 < count && (messages[i + 1].flags & I2C_M_RD) != 0;
        if (message.addr != Command::CHIP_ADDRESS) {
            return ENXIO;
        }
        if ((message.flags & I2C_M_RECV_LEN) != 0) {
            return EOPNOTSUPP; // no candidate leaves a length to the chip
        }
        if ((message.flags & I2C_M_RD) != 0) {
            chip.send(message.buf, message.len, 0);
        } else if (chip.receive(message.buf, message.len, readFollows) != message.len) {
            return EREMOTEIO;
        }
    }
    return 0;
}

} // namespace

extern "C" {

INTERPOSED int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (std::strcmp(path, BUS_PATH) != 0) {
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    }
    g_busFd = openBoard(flags);
    return g_busFd;
}

// The same function on machines whose files are large anyway.
INTERPOSED int open64(const char* path, int flags, ...) __attribute__((alias("open")));

INTERPOSED int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto result = static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    const bool bus = g_board != nullptr && fd == g_busFd;
    return bus ? virtualboard::deviceRequest(transfer, request, argument, g_address) : result;
}

INTERPOSED int usleep(useconds_t microseconds)
{
    const bool waits = std::getenv(WAITS_VARIABLE) != nullptr;
    return waits ? next<int(useconds_t)>("usleep")(microseconds) : 0;
}

INTERPOSED unsigned int sleep(unsigned int seconds)
{
    const bool waits = std::getenv(WAITS_VARIABLE) != nullptr;
    return waits ? next<unsigned int(unsigned int)>("sleep")(seconds) : 0;
}

} // extern "C"
