// Preloaded into every candidate of the comparison: a bus that answers at once, so that
// what remains is the candidate's own time. /dev/i2c-0 is the memory file of a virtual
// board, mapped; its chip answers. Each request still enters the kernel once, as on a
// board, where the file refuses it: strace sees what the candidate asked for.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "board.h"
#include "shim.h"

namespace {

using virtualboard::BoardState;
using virtualboard::Chip;

constexpr const char* BUS_PATH = "/dev/i2c-0";
/// Environment: the memory file, made by virtual-board.
constexpr const char* BOARD_VARIABLE = "INSTANT_BUS_BOARD";

BoardState* g_board = nullptr;
int g_busFd = -1;

int fail(int error)
{
    errno = error;
    return -1;
}

void openBoard(int fd)
{
    void* memory = mmap(nullptr, sizeof(BoardState), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory != MAP_FAILED) {
        g_board = static_cast<BoardState*>(memory);
        g_busFd = fd;
    }
}

// The transactions that the candidates use: send byte, one or two bytes, I2C blocks.
int smbus(Chip& chip, const i2c_smbus_ioctl_data& request)
{
    if (request.size == I2C_SMBUS_BYTE) {
        return chip.receive(&request.command, 1, false) == 1 ? 0 : fail(EREMOTEIO);
    }
    i2c_smbus_data& data = *request.data;
    const bool word = request.size == I2C_SMBUS_WORD_DATA;
    const bool block = !word && request.size != I2C_SMBUS_BYTE_DATA;
    const std::size_t blockSize = std::min<std::size_t>(data.block[0], I2C_SMBUS_BLOCK_MAX);
    const std::size_t count = block ? blockSize : word ? 2 : 1;
    std::uint8_t* at = data.block + (block ? 1 : 0);
    if (request.read_write == I2C_SMBUS_READ) {
        if (chip.receive(&request.command, 1, true) == 0) {
            return fail(ENXIO);
        }
        chip.send(at, count, 0);
        if (word) {
            data.word = static_cast<std::uint16_t>(at[0] + 256 * at[1]);
        }
        return 0;
    }
    std::uint8_t bytes[1 + I2C_SMBUS_BLOCK_MAX] = {request.command};
    std::copy_n(at, count, bytes + 1);
    if (word) {
        bytes[1] = static_cast<std::uint8_t>(data.word);
        bytes[2] = static_cast<std::uint8_t>(data.word >> 8);
    }
    return chip.receive(bytes, count + 1, false) == count + 1 ? 0 : fail(EREMOTEIO);
}

int transfer(Chip& chip, const i2c_rdwr_ioctl_data& request)
{
    for (std::uint32_t i = 0; i < request.nmsgs; ++i) {
        const i2c_msg& message = request.msgs[i];
        const bool readFollows =
            i + 1 < request.nmsgs && (request.msgs[i + 1].flags & I2C_M_RD) != 0;
        if ((message.flags & I2C_M_RD) != 0) {
            chip.send(message.buf, message.len, 0);
        } else if (chip.receive(message.buf, message.len, readFollows) != message.len) {
            return fail(EREMOTEIO);
        }
    }
    return static_cast<int>(request.nmsgs);
}

} // namespace

extern "C" {

INTERPOSED int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const bool bus = std::strcmp(path, BUS_PATH) == 0;
    const char* file = bus ? std::getenv(BOARD_VARIABLE) : path;
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, file, flags, mode));
    if (bus && fd >= 0) {
        openBoard(fd);
    }
    return fd;
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
    if (fd != g_busFd) {
        return result;
    }
    Chip chip(g_board->chip);
    switch (request) {
    case I2C_SLAVE:
        return 0;
    case I2C_FUNCS: // through four bytes, as Python hands in no more
        *static_cast<std::uint32_t*>(argument) = I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL;
        return 0;
    case I2C_SMBUS:
        return smbus(chip, *static_cast<i2c_smbus_ioctl_data*>(argument));
    case I2C_RDWR:
        return transfer(chip, *static_cast<i2c_rdwr_ioctl_data*>(argument));
    default:
        return result;
    }
}

} // extern "C"
