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
                                    | I2C_FUNC_SMBUS_BLOCK_DATA | I2C_FUNC_SMBUS_I2C_BLOCK;

int fail(int error)
{
    errno = error;
    return -1;
}

int bind(Session& session, unsigned long request, unsigned long wanted, int& address)
{
    if (wanted > LAST_ADDRESS) {
        return fail(EINVAL);
    }
    if (request == I2C_SLAVE && wanted == Command::CHIP_ADDRESS) {
        const BoardAccess turn(session.board);
        if (strikingFault(session, FaultKind::BUSY) != nullptr) {
            return fail(EBUSY);
        }
    }
    address = static_cast<int>(wanted);
    return 0;
}

// Returns 0, or -1 with errno.
int carryOut(Session& session, Message* messages, std::size_t count)
{
    const int error = transfer(session, messages, count);
    return error == 0 ? 0 : fail(error);
}

// SMBus transactions become the messages that the kernel makes of them for a bus
// that knows plain I2C: one that is written, then one that is read.

int writeSmbus(Session& session, const i2c_smbus_ioctl_data& request, int address)
{
    std::array<std::uint8_t, I2C_SMBUS_BLOCK_MAX + 2> bytes{request.command};
    Message message{address, false, bytes.data(), 1};
    const i2c_smbus_data* data = request.data;
    switch (request.size) {
    case I2C_SMBUS_BYTE:
        break;
    case I2C_SMBUS_BYTE_DATA:
        message.size += 1;
        message.bytes[1] = data->byte;
        break;
    case I2C_SMBUS_WORD_DATA:
        message.size += 2;
        message.bytes[1] = static_cast<std::uint8_t>(data->word);
        message.bytes[2] = static_cast<std::uint8_t>(data->word >> 8);
        break;
    case I2C_SMBUS_BLOCK_DATA:
        message.size += data->block[0] + 1U;
        std::copy_n(data->block, data->block[0] + 1, bytes.begin() + 1);
        break;
    default: // I2C_SMBUS_I2C_BLOCK_DATA and its older form
        message.size += data->block[0];
        std::copy_n(data->block + 1, data->block[0], bytes.begin() + 1);
        break;
    }
    return carryOut(session, &message, 1);
}

int readSmbus(Session& session, const i2c_smbus_ioctl_data& request, int address)
{
    std::uint8_t code = request.command;
    i2c_smbus_data data = {};
    Message messages[] = {{address, false, &code, 1}, {address, true, data.block, 1}};
    Message& answer = messages[1];
    switch (request.size) {
    case I2C_SMBUS_BYTE:
    case I2C_SMBUS_BYTE_DATA:
        break;
    case I2C_SMBUS_WORD_DATA:
        answer.size = 2;
        break;
    case I2C_SMBUS_BLOCK_DATA:
        answer.countFirst = true;
        break;
    default: // the older form asks for no count
        data.block[0] =
            request.size == I2C_SMBUS_I2C_BLOCK_DATA ? request.data->block[0] : I2C_SMBUS_BLOCK_MAX;
        answer.bytes = data.block + 1;
        answer.size = data.block[0];
        break;
    }
    const bool named = request.size > I2C_SMBUS_BYTE;
    if (carryOut(session, named ? messages : &answer, named ? 2 : 1) != 0) {
        return -1;
    }
    if (request.size == I2C_SMBUS_WORD_DATA) {
        request.data->word = static_cast<std::uint16_t>(data.block[0] | data.block[1] << 8);
    } else {
        std::copy(data.block, answer.bytes + answer.size, request.data->block);
    }
    return 0;
}

int smbusRequest(Session& session, const i2c_smbus_ioctl_data& request, int address)
{
    const bool reads = request.read_write == I2C_SMBUS_READ;
    const bool bare = request.size == I2C_SMBUS_QUICK || (request.size == I2C_SMBUS_BYTE && !reads);
    if (request.size > I2C_SMBUS_I2C_BLOCK_DATA || (!reads && request.read_write != I2C_SMBUS_WRITE)
        || (!bare && request.data == nullptr)) {
        return fail(EINVAL);
    }
    if (request.size == I2C_SMBUS_PROC_CALL || request.size == I2C_SMBUS_BLOCK_PROC_CALL) {
        return fail(EOPNOTSUPP); // the chip has no such commands
    }
    const bool tellsCount = request.size == I2C_SMBUS_I2C_BLOCK_DATA
                            || (!reads && request.size >= I2C_SMBUS_BLOCK_DATA);
    if (tellsCount && request.data->block[0] > I2C_SMBUS_BLOCK_MAX) {
        return fail(EINVAL);
    }
    if (request.size == I2C_SMBUS_QUICK) {
        Message message{address, reads, nullptr, 0};
        return carryOut(session, &message, 1);
    }
    return reads ? readSmbus(session, request, address) : writeSmbus(session, request, address);
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
    if (message.len > 0 && message.buf == nullptr) {
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
    std::array<Message, I2C_RDWR_IOCTL_MAX_MSGS> messages{};
    for (std::size_t i = 0; i < request.nmsgs; ++i) {
        const i2c_msg& message = request.msgs[i];
        if (const int error = checkMessage(message); error != 0) {
            return fail(error);
        }
        messages[i] = {message.addr, (message.flags & I2C_M_RD) != 0, message.buf, message.len,
                       (message.flags & I2C_M_RECV_LEN) != 0};
    }
    const bool done = carryOut(session, messages.data(), request.nmsgs) == 0;
    return done ? static_cast<int>(request.nmsgs) : -1;
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
    case I2C_SMBUS:
    case I2C_RDWR:
        break;
    default:
        return fail(ENOTTY);
    }
    if (argument == nullptr) {
        return fail(EFAULT);
    }
    if (request == I2C_FUNCS) {
        *static_cast<unsigned long*>(argument) = FUNCTIONS;
        return 0;
    }
    return request == I2C_SMBUS
               ? smbusRequest(session, *static_cast<i2c_smbus_ioctl_data*>(argument), address)
               : transferRequest(session, *static_cast<i2c_rdwr_ioctl_data*>(argument));
}

} // namespace virtualboard
