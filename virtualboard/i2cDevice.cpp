#include "i2cDevice.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "board.h"
#include "bus.h"

namespace virtualboard {

namespace {

constexpr unsigned long LAST_ADDRESS = 0x7F;   // 7-bit addresses
constexpr std::size_t MESSAGE_SIZE_MAX = 8192; // the kernel's limit in I2C_RDWR

constexpr unsigned long FUNCTIONS = I2C_FUNC_I2C | I2C_FUNC_SMBUS_QUICK | I2C_FUNC_SMBUS_BYTE
                                    | I2C_FUNC_SMBUS_BYTE_DATA | I2C_FUNC_SMBUS_WORD_DATA
                                    | I2C_FUNC_SMBUS_PROC_CALL | I2C_FUNC_SMBUS_BLOCK_DATA
                                    | I2C_FUNC_SMBUS_BLOCK_PROC_CALL | I2C_FUNC_SMBUS_I2C_BLOCK;

int fail(int error)
{
    errno = error;
    return -1;
}

// No process has anything in its first page; the kernel says EFAULT.
bool isBadPointer(const void* pointer)
{
    return reinterpret_cast<std::uintptr_t>(pointer) < 4096;
}

int bind(Session& session, unsigned long request, unsigned long wanted, int& address)
{
    if (wanted > LAST_ADDRESS) {
        return fail(EINVAL);
    }
    if (request == I2C_SLAVE && wanted == CHIP_ADDRESS) {
        const BoardAccess turn(session.board);
        if (strikingFault(session, FaultKind::BUSY) != nullptr) {
            return fail(EBUSY);
        }
    }
    address = static_cast<int>(wanted);
    return 0;
}

// An SMBus transaction as the messages that the kernel makes of it for a bus
// that knows plain I2C: one that is written, then one that is read.
struct Smbus {
    std::array<std::uint8_t, I2C_SMBUS_BLOCK_MAX + 2> out{};
    std::array<std::uint8_t, I2C_SMBUS_BLOCK_MAX + 2> in{};
    std::size_t outSize = 1; // the command code
    std::size_t inSize = 0;
    bool countFirst = false;
};

// Appends the first `count` bytes of a block, its count byte the first of them.
void appendBlock(Smbus& smbus, const std::uint8_t* block, std::size_t from, std::size_t count)
{
    std::copy_n(block + from, count, smbus.out.data() + smbus.outSize);
    smbus.outSize += count;
}

void appendWord(Smbus& smbus, std::uint16_t word)
{
    smbus.out[smbus.outSize++] = static_cast<std::uint8_t>(word);
    smbus.out[smbus.outSize++] = static_cast<std::uint8_t>(word >> 8);
}

// Fills the messages for all transactions with data; false: a block too long.
bool makeSmbus(Smbus& smbus, std::uint32_t size, bool read, const i2c_smbus_data& data)
{
    const std::size_t count = data.block[0];
    switch (size) {
    case I2C_SMBUS_BYTE_DATA:
        if (read) {
            smbus.inSize = 1;
        } else {
            smbus.out[smbus.outSize++] = data.byte;
        }
        return true;
    case I2C_SMBUS_WORD_DATA:
        if (read) {
            smbus.inSize = 2;
        } else {
            appendWord(smbus, data.word);
        }
        return true;
    case I2C_SMBUS_PROC_CALL:
        appendWord(smbus, data.word);
        smbus.inSize = 2;
        return true;
    case I2C_SMBUS_I2C_BLOCK_BROKEN:
        if (read) {
            smbus.inSize = I2C_SMBUS_BLOCK_MAX; // the older form asks for no count
            return true;
        }
        [[fallthrough]];
    case I2C_SMBUS_I2C_BLOCK_DATA:
        if (count > I2C_SMBUS_BLOCK_MAX) {
            return false;
        }
        if (read) {
            smbus.inSize = count;
        } else {
            appendBlock(smbus, data.block, 1, count);
        }
        return true;
    default: // I2C_SMBUS_BLOCK_DATA, I2C_SMBUS_BLOCK_PROC_CALL
        if (size == I2C_SMBUS_BLOCK_DATA && read) {
            smbus.countFirst = true;
            return true;
        }
        if (count > I2C_SMBUS_BLOCK_MAX) {
            return false;
        }
        appendBlock(smbus, data.block, 0, count + 1);
        smbus.countFirst = size == I2C_SMBUS_BLOCK_PROC_CALL;
        return true;
    }
}

void takeAnswer(const Smbus& smbus, std::uint32_t size, i2c_smbus_data& data)
{
    switch (size) {
    case I2C_SMBUS_BYTE_DATA:
        data.byte = smbus.in[0];
        return;
    case I2C_SMBUS_WORD_DATA:
    case I2C_SMBUS_PROC_CALL:
        data.word = static_cast<std::uint16_t>(smbus.in[0] | smbus.in[1] << 8);
        return;
    case I2C_SMBUS_I2C_BLOCK_BROKEN:
    case I2C_SMBUS_I2C_BLOCK_DATA:
        data.block[0] = static_cast<std::uint8_t>(smbus.inSize);
        std::copy_n(smbus.in.begin(), smbus.inSize, data.block + 1);
        return;
    default:
        std::copy_n(smbus.in.begin(), smbus.in[0] + 1, data.block);
        return;
    }
}

int finishSmbus(Session& session, Message* messages, std::size_t count)
{
    const int error = transfer(session, messages, count);
    return error == 0 ? 0 : fail(error);
}

// The transactions of a single message: quick command, send and receive byte.
int shortSmbus(Session& session, const i2c_smbus_ioctl_data& request, int address)
{
    const bool read = request.read_write == I2C_SMBUS_READ;
    std::uint8_t byte = request.command;
    Message message{address, read, &byte, request.size == I2C_SMBUS_QUICK ? 0U : 1U};
    const int result = finishSmbus(session, &message, 1);
    if (result == 0 && read && request.size == I2C_SMBUS_BYTE) {
        request.data->byte = byte;
    }
    return result;
}

int smbusRequest(Session& session, const i2c_smbus_ioctl_data& request, int address)
{
    const bool read = request.read_write == I2C_SMBUS_READ;
    const bool bare = request.size == I2C_SMBUS_QUICK || (request.size == I2C_SMBUS_BYTE && !read);
    if (request.size > I2C_SMBUS_I2C_BLOCK_DATA || (!read && request.read_write != I2C_SMBUS_WRITE)
        || (!bare && request.data == nullptr)) {
        return fail(EINVAL);
    }
    if (!bare && isBadPointer(request.data)) {
        return fail(EFAULT);
    }
    if (request.size <= I2C_SMBUS_BYTE) {
        return shortSmbus(session, request, address);
    }
    const std::uint32_t size = request.size;
    Smbus smbus;
    smbus.out[0] = request.command;
    if (!makeSmbus(smbus, size, read, *request.data)) {
        return fail(EINVAL);
    }
    const bool answers = read || size == I2C_SMBUS_PROC_CALL || size == I2C_SMBUS_BLOCK_PROC_CALL;
    Message messages[] = {{address, false, smbus.out.data(), smbus.outSize},
                          {address, true, smbus.in.data(), smbus.inSize, smbus.countFirst}};
    const int result = finishSmbus(session, messages, answers ? 2 : 1);
    if (result == 0 && answers) {
        takeAnswer(smbus, size, *request.data);
    }
    return result;
}

// 0, or why the kernel refuses the message.
int checkMessage(const i2c_msg& message)
{
    constexpr unsigned KNOWN = I2C_M_RD | I2C_M_RECV_LEN | I2C_M_DMA_SAFE;
    if (message.len > MESSAGE_SIZE_MAX) {
        return EINVAL;
    }
    if ((message.flags & ~KNOWN) != 0) {
        return EOPNOTSUPP;
    }
    if (message.len > 0 && isBadPointer(message.buf)) {
        return EFAULT;
    }
    const bool counted = (message.flags & I2C_M_RECV_LEN) != 0;
    if (counted
        && ((message.flags & I2C_M_RD) == 0 || message.len == 0 || message.buf[0] != 1
            || message.len < message.buf[0] + I2C_SMBUS_BLOCK_MAX)) {
        return EINVAL;
    }
    return 0;
}

int transferRequest(Session& session, const i2c_rdwr_ioctl_data& request)
{
    if (request.msgs == nullptr || request.nmsgs == 0 || request.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return fail(EINVAL);
    }
    if (isBadPointer(request.msgs)) {
        return fail(EFAULT);
    }
    std::array<Message, I2C_RDWR_IOCTL_MAX_MSGS> messages{};
    for (std::size_t i = 0; i < request.nmsgs; ++i) {
        const i2c_msg& message = request.msgs[i];
        if (const int error = checkMessage(message); error != 0) {
            return fail(error);
        }
        messages[i] = {message.addr, (message.flags & I2C_M_RD) != 0, message.buf, message.len,
                       (message.flags & I2C_M_RECV_LEN) != 0};
    }
    const int error = transfer(session, messages.data(), request.nmsgs);
    return error == 0 ? static_cast<int>(request.nmsgs) : fail(error);
}

} // namespace

int deviceRequest(Session& session, unsigned long request, void* argument, int& address)
{
    const auto number = reinterpret_cast<std::uintptr_t>(argument);
    switch (request) {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE:
        return bind(session, request, number, address);
    case I2C_TENBIT:
    case I2C_PEC:
        // The chip has a 7-bit address and this bus makes no check bytes.
        return number == 0 ? 0 : fail(EINVAL);
    case I2C_RETRIES:
    case I2C_TIMEOUT:
        return number <= INT_MAX ? 0 : fail(EINVAL);
    case I2C_FUNCS:
        if (isBadPointer(argument)) {
            return fail(EFAULT);
        }
        *static_cast<unsigned long*>(argument) = FUNCTIONS;
        return 0;
    case I2C_SMBUS:
        return isBadPointer(argument)
                   ? fail(EFAULT)
                   : smbusRequest(session, *static_cast<i2c_smbus_ioctl_data*>(argument), address);
    case I2C_RDWR:
        return isBadPointer(argument)
                   ? fail(EFAULT)
                   : transferRequest(session, *static_cast<i2c_rdwr_ioctl_data*>(argument));
    default:
        return fail(ENOTTY);
    }
}

} // namespace virtualboard
