#include "i2cDevice.h"

#include <linux/i2c-dev.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>

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

int bind(unsigned long wanted, unsigned int& address)
{
    if (wanted > LAST_ADDRESS) {
        return fail(EINVAL);
    }
    address = static_cast<unsigned int>(wanted);
    return 0;
}

// A message of an SMBus transaction.
i2c_msg message(unsigned int address, bool read, std::uint8_t* bytes, std::size_t size)
{
    return {static_cast<std::uint16_t>(address), static_cast<std::uint16_t>(read ? I2C_M_RD : 0),
            static_cast<std::uint16_t>(size), bytes};
}

// Returns 0, or -1 with errno.
int carryOut(const TransferFunction& transfer, i2c_msg* messages, std::size_t count)
{
    const int error = transfer(messages, count);
    return error == 0 ? 0 : fail(error);
}

// SMBus transactions become the messages that the kernel makes of them for a plain I2C bus: one
// that is written, then one that is read.

int writeSmbus(const TransferFunction& transfer, const i2c_smbus_ioctl_data& request,
               unsigned int address)
{
    std::array<std::uint8_t, I2C_SMBUS_BLOCK_MAX + 2> bytes{request.command};
    std::size_t size = 1;
    const i2c_smbus_data* data = request.data;
    switch (request.size) {
    case I2C_SMBUS_BYTE:
        break;
    case I2C_SMBUS_BYTE_DATA:
        size += 1;
        bytes[1] = data->byte;
        break;
    case I2C_SMBUS_WORD_DATA:
        size += 2;
        bytes[1] = static_cast<std::uint8_t>(data->word);
        bytes[2] = static_cast<std::uint8_t>(data->word >> 8);
        break;
    case I2C_SMBUS_BLOCK_DATA:
        size += data->block[0] + 1U;
        std::copy_n(data->block, data->block[0] + 1, bytes.begin() + 1);
        break;
    default: // I2C_SMBUS_I2C_BLOCK_DATA and its older form
        size += data->block[0];
        std::copy_n(data->block + 1, data->block[0], bytes.begin() + 1);
        break;
    }
    i2c_msg written = message(address, false, bytes.data(), size);
    return carryOut(transfer, &written, 1);
}

int readSmbus(const TransferFunction& transfer, const i2c_smbus_ioctl_data& request,
              unsigned int address)
{
    std::uint8_t code = request.command;
    i2c_smbus_data data = {};
    i2c_msg messages[] = {message(address, false, &code, 1), message(address, true, data.block, 1)};
    i2c_msg& answer = messages[1];
    switch (request.size) {
    case I2C_SMBUS_BYTE:
    case I2C_SMBUS_BYTE_DATA:
        break;
    case I2C_SMBUS_WORD_DATA:
        answer.len = 2;
        break;
    case I2C_SMBUS_BLOCK_DATA:
        answer.flags |= I2C_M_RECV_LEN;
        break;
    default: // the older form asks for no count
        data.block[0] =
            request.size == I2C_SMBUS_I2C_BLOCK_DATA ? request.data->block[0] : I2C_SMBUS_BLOCK_MAX;
        answer.buf = data.block + 1;
        answer.len = data.block[0];
        break;
    }
    const bool named = request.size > I2C_SMBUS_BYTE;
    if (carryOut(transfer, named ? messages : &answer, named ? 2 : 1) != 0) {
        return -1;
    }
    if (request.size == I2C_SMBUS_WORD_DATA) {
        request.data->word = static_cast<std::uint16_t>(data.block[0] | data.block[1] << 8);
    } else {
        std::copy(data.block, answer.buf + answer.len, request.data->block);
    }
    return 0;
}

int smbusRequest(const TransferFunction& transfer, const i2c_smbus_ioctl_data& request,
                 unsigned int address)
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
        i2c_msg quick = message(address, reads, nullptr, 0);
        return carryOut(transfer, &quick, 1);
    }
    return reads ? readSmbus(transfer, request, address) : writeSmbus(transfer, request, address);
}

// 0, or why the kernel refuses the message.
int checkMessage(const i2c_msg& message)
{
    constexpr unsigned int KNOWN = I2C_M_RD | I2C_M_RECV_LEN | I2C_M_DMA_SAFE;
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

int transferRequest(const TransferFunction& transfer, const i2c_rdwr_ioctl_data& request)
{
    if (request.msgs == nullptr || request.nmsgs == 0 || request.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return fail(EINVAL);
    }
    std::array<i2c_msg, I2C_RDWR_IOCTL_MAX_MSGS> messages{};
    for (std::size_t i = 0; i < request.nmsgs; ++i) {
        messages[i] = request.msgs[i];
        if (const int error = checkMessage(messages[i]); error != 0) {
            return fail(error);
        }
    }
    const bool done = carryOut(transfer, messages.data(), request.nmsgs) == 0;
    return done ? static_cast<int>(request.nmsgs) : -1;
}

} // namespace

int deviceRequest(const TransferFunction& transfer, unsigned long request, void* argument,
                  unsigned int& address)
{
    const auto number = reinterpret_cast<std::uintptr_t>(argument);
    switch (request) {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE:
        return bind(number, address);
    case I2C_TENBIT:
    case I2C_PEC:
        return 0; // accepted, but this bus has neither long addresses nor check bytes
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
               ? smbusRequest(transfer, *static_cast<i2c_smbus_ioctl_data*>(argument), address)
               : transferRequest(transfer, *static_cast<i2c_rdwr_ioctl_data*>(argument));
}

} // namespace virtualboard
