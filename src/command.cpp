#include "command.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "log.h"

namespace {

constexpr std::int32_t MAX_ATTEMPTS = 3;

/// Long enough for most disturbances of a bus to pass.
constexpr useconds_t RETRY_PAUSE_US = 10000;

/// Makes one SMBus transfer with the chip bound to `fd`. Returns the request's result: -1, with
/// errno set, on failure.
int smbus(int fd, std::uint8_t readWrite, std::uint8_t code, std::uint32_t size,
          i2c_smbus_data* data)
{
    i2c_smbus_ioctl_data request{readWrite, code, size, data};
    return ioctl(fd, I2C_SMBUS, &request);
}

/// `value` in hexadecimal, with at least `digits` digits.
std::string toHex(unsigned int value, int digits)
{
    char text[9];
    std::snprintf(text, sizeof(text), "%0*x", digits, value);
    return text;
}

} // namespace

Command::Command(std::uint8_t code, std::uint8_t dataSize, Access channels, Access sensors,
                 Access device) noexcept
    : m_retries(MAX_ATTEMPTS),
      m_code(code),
      m_dataSize(dataSize),
      m_channelAccess(channels),
      m_temperatureAccess(sensors),
      m_allPagesAccess(device),
      m_status(false)
{
}

bool Command::isValid(std::uint32_t access, std::uint8_t page) const
{
    if (isChannelPage(page)) {
        return (access & m_channelAccess) != 0;
    }
    if (isTemperaturePage(page)) {
        return (access & m_temperatureAccess) != 0;
    }
    if (isAllPages(page)) {
        return (access & m_allPagesAccess) != 0;
    }
    LOG(ERROR, "Invalid page %d", page);
    return false;
}

bool Command::begin(std::uint32_t access, std::uint8_t page)
{
    m_status = false;
    if (isValid(access, page)) {
        return true;
    }
    if (access == ACCESS_READ) {
        LOG_AS("read", ERROR, "Read command %02x on page %d not allowed", getCode(), page);
    } else {
        LOG_AS("write", ERROR, "Write command %02x on page %d not allowed", getCode(), page);
    }
    return false;
}

bool Command::writeSmbus(int fd, std::uint8_t page, std::uint32_t size, const i2c_smbus_data& data)
{
    int reason = 0;
    for (m_retries = MAX_ATTEMPTS; m_retries > 0; retry("write", reason)) {
        i2c_smbus_data sent = data;
        if (smbus(fd, I2C_SMBUS_WRITE, m_code, size, &sent) >= 0) {
            m_status = true;
            return true;
        }
        reason = errno;
        LOG_AS("write", WARNING, "Write command %02x on page %d failed, %s", getCode(), page,
               std::strerror(reason));
    }
    return false;
}

bool Command::readSmbus(int fd, std::uint8_t page, std::uint32_t size, i2c_smbus_data& data)
{
    int reason = 0;
    for (m_retries = MAX_ATTEMPTS; m_retries > 0; retry("read", reason)) {
        data = {};
        if (smbus(fd, I2C_SMBUS_READ, m_code, size, &data) == 0) {
            m_status = true;
            return true;
        }
        reason = errno;
        LOG_AS("read", WARNING, "Read command %02x on page %d failed, %s", getCode(), page,
               std::strerror(reason));
    }
    return false;
}

void Command::retry(const char* caller, int reason)
{
    --m_retries;
    LOG_AS(caller, WARNING, "retry %d", MAX_ATTEMPTS - m_retries);
    usleep(RETRY_PAUSE_US);
    errno = reason;
}

bool Command::operator==(const Command& other) const
{
    LOG(DEBUG, "");
    return m_dataSize == other.m_dataSize && m_allPagesAccess == other.m_allPagesAccess
           && m_channelAccess == other.m_channelAccess
           && m_temperatureAccess == other.m_temperatureAccess && m_code == other.m_code
           && compare(&other);
}

bool Command::operator!=(const Command& other) const
{
    LOG(DEBUG, "");
    return !compare(&other);
}

std::string Command::toString() const
{
    char constants[64];
    std::snprintf(constants, sizeof(constants),
                  "Command: %02x %02d %02" PRIx32 " %02" PRIx32 " %02" PRIx32 " \n", m_code,
                  m_dataSize, m_channelAccess, m_temperatureAccess, m_allPagesAccess);
    return constants + dataToString() + "\n";
}

Command* Command::create(unsigned int code)
{
    switch (code) {
#define COMMAND_ROW(code, name, ...)                                                               \
    case code:                                                                                     \
        return new name;
#include "commandCatalogue.def"
    default:
        LOG(ERROR, "Command %02x not found", code);
        return nullptr;
    }
}

std::string NullCommand::dataToString() const
{
    return "<no data>";
}

bool NullCommand::compare(const Command* /*other*/) const
{
    return true;
}

void NullCommand::setData(const std::uint8_t* /*bytes*/) {}

bool NullCommand::getData(std::uint8_t* /*bytes*/) const
{
    return m_status;
}

bool NullCommand::write(int fd, std::uint8_t page)
{
    if (!begin(ACCESS_WRITE, page)) {
        return false;
    }
    int reason = 0;
    for (m_retries = MAX_ATTEMPTS; m_retries > 0; retry(__func__, reason)) {
        // SMBus Send Byte: the code itself is all that is sent.
        if (smbus(fd, I2C_SMBUS_WRITE, m_code, I2C_SMBUS_BYTE, nullptr) >= 0) {
            m_status = true;
            return true;
        }
        reason = errno;
        LOG(WARNING, "Write command %02x on page %d failed", getCode(), page);
    }
    return false;
}

bool NullCommand::read(int /*fd*/, std::uint8_t page)
{
    m_status = isValid(ACCESS_READ, page);
    return m_status;
}

std::string ByteCommand::dataToString() const
{
    return toHex(m_byte, 2);
}

bool ByteCommand::compare(const Command* other) const
{
    LOG(DEBUG, "");
    const auto* byteCommand = dynamic_cast<const ByteCommand*>(other);
    return byteCommand != nullptr && m_byte == byteCommand->m_byte;
}

void ByteCommand::setData(const std::uint8_t* bytes)
{
    m_byte = bytes[0];
}

bool ByteCommand::getData(std::uint8_t* bytes) const
{
    bytes[0] = m_byte;
    return m_status;
}

bool ByteCommand::write(int fd, std::uint8_t page)
{
    i2c_smbus_data data{};
    data.byte = m_byte;
    return begin(ACCESS_WRITE, page) && writeSmbus(fd, page, I2C_SMBUS_BYTE_DATA, data);
}

bool ByteCommand::read(int fd, std::uint8_t page)
{
    i2c_smbus_data data;
    if (!begin(ACCESS_READ, page) || !readSmbus(fd, page, I2C_SMBUS_BYTE_DATA, data)) {
        return false;
    }
    m_byte = data.byte;
    return true;
}

std::string WordCommand::dataToString() const
{
    return toHex(m_word, 4);
}

bool WordCommand::compare(const Command* other) const
{
    LOG(DEBUG, "");
    const auto* wordCommand = dynamic_cast<const WordCommand*>(other);
    return wordCommand != nullptr && m_word == wordCommand->m_word;
}

void WordCommand::setData(const std::uint8_t* bytes)
{
    // Low-order byte first, as on the bus (SMBus Write Word).
    m_word = static_cast<std::uint16_t>(bytes[0] + 256 * bytes[1]);
}

bool WordCommand::getData(std::uint8_t* bytes) const
{
    bytes[0] = static_cast<std::uint8_t>(m_word % 256);
    bytes[1] = static_cast<std::uint8_t>(m_word / 256);
    return m_status;
}

bool WordCommand::write(int fd, std::uint8_t page)
{
    // The kernel takes the word as a number and orders its bytes on the bus.
    i2c_smbus_data data{};
    data.word = m_word;
    return begin(ACCESS_WRITE, page) && writeSmbus(fd, page, I2C_SMBUS_WORD_DATA, data);
}

bool WordCommand::read(int fd, std::uint8_t page)
{
    i2c_smbus_data data;
    if (!begin(ACCESS_READ, page) || !readSmbus(fd, page, I2C_SMBUS_WORD_DATA, data)) {
        return false;
    }
    m_word = data.word;
    return true;
}

std::string BlockCommand::dataToString() const
{
    constexpr int BYTES_PER_LINE = 32;
    std::string text;
    for (int i = 0; i < m_dataSize; ++i) {
        text += toHex(m_data[i], 2) + " ";
        if ((i + 1) % BYTES_PER_LINE == 0) {
            text += "\n";
        }
    }
    return text;
}

bool BlockCommand::compare(const Command* other) const
{
    LOG(DEBUG, "");
    const auto* blockCommand = dynamic_cast<const BlockCommand*>(other);
    return blockCommand != nullptr && std::memcmp(m_data, blockCommand->m_data, m_dataSize) == 0;
}

void BlockCommand::setData(const std::uint8_t* bytes)
{
    std::memset(m_data, 0, sizeof(m_data));
    std::memcpy(m_data, bytes, m_dataSize);
}

bool BlockCommand::getData(std::uint8_t* bytes) const
{
    std::memcpy(bytes, m_data, m_dataSize);
    return m_status;
}

bool BlockCommand::write(int fd, std::uint8_t page)
{
    // Data this short is a byte or a word, which have transfers of their own.
    constexpr std::uint8_t LONGEST_NON_BLOCK = 2;

    if (!begin(ACCESS_WRITE, page)) {
        return false;
    }
    if (m_dataSize <= LONGEST_NON_BLOCK) {
        LOG(ERROR, "Command expects datasize %d", m_dataSize);
        return false;
    }
    // The kernel takes the count from byte 0 and sends only the bytes after it.
    i2c_smbus_data data{};
    data.block[0] = std::min<std::uint8_t>(m_dataSize, I2C_SMBUS_BLOCK_MAX);
    std::memcpy(&data.block[1], m_data, data.block[0]);
    return writeSmbus(fd, page, I2C_SMBUS_I2C_BLOCK_BROKEN, data);
}

bool BlockCommand::read(int fd, std::uint8_t page)
{
    if (!begin(ACCESS_READ, page)) {
        return false;
    }
    // Two bytes more than are asked for, as the kernel's own block buffers have.
    std::uint8_t received[MAX_DATA_SIZE + 2] = {};
    int reason = 0;
    for (m_retries = MAX_ATTEMPTS; m_retries > 0; retry(__func__, reason)) {
        i2c_msg messages[] = {{CHIP_ADDRESS, 0, 1, &m_code},
                              {CHIP_ADDRESS, I2C_M_RD, m_dataSize, received}};
        i2c_rdwr_ioctl_data request{messages, 2};
        if (ioctl(fd, I2C_RDWR, &request) != -1) {
            std::memset(m_data, 0, sizeof(m_data));
            std::memcpy(m_data, received, m_dataSize);
            m_status = true;
            return true;
        }
        reason = errno;
        LOG(WARNING, "Read command %02x on page %d failed, %s", getCode(), page,
            std::strerror(reason));
    }
    return false;
}

bool Page::write(int fd, std::uint8_t page)
{
    setByte(page);
    return ByteCommand::write(fd, page);
}
