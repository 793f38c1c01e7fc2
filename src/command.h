// The PMBus command model: one object per register of the MAX34460, which holds its data and moves
// it over the bus. The device, the parser and the handler of the PM data file work with these.
// Including this file brings in the catalogue.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

union i2c_smbus_data; // of the kernel's interface, linux/i2c.h

/// The two operations on a register; bits of an access mask.
inline constexpr std::uint32_t ACCESS_READ = 1;
inline constexpr std::uint32_t ACCESS_WRITE = 2;

/// A PMBus register or action. It holds no page: the page is an argument of each transfer, and
/// callers select it on the chip by writing a `Page` first.
class Command {
public:
    /// The chip's 7-bit address on the bus.
    static constexpr std::uint8_t CHIP_ADDRESS = 0x74;

    /// The page that means the device as a whole (PMBus standard, PAGE).
    static constexpr std::uint8_t ALL_PAGES = 255;

    /// Supply channels, from page 0 on, and temperature sensors (MAX34460 data sheet).
    static constexpr int CHANNELS = 12;
    static constexpr int SENSORS = 5;
    static constexpr int FIRST_SENSOR_PAGE = 13;

    /// The access to a command on a group of pages: a mask of ACCESS_READ and ACCESS_WRITE.
    using Access = std::uint32_t;
    static constexpr Access NO = 0;
    static constexpr Access RO = ACCESS_READ;
    static constexpr Access WO = ACCESS_WRITE;
    static constexpr Access RW = ACCESS_READ | ACCESS_WRITE;

    virtual ~Command() = default;

    /// The data as lower-case hexadecimal text.
    virtual std::string dataToString() const = 0;

    /// Whether `other` is of the same data-size class and the data of this command equals its first
    /// bytes; the codes don't matter. False for a null pointer. A command without data equals
    /// everything.
    virtual bool compare(const Command* other) const = 0;

    /// Loads the data from `bytes`, at least getDataSize() of them, words low byte first.
    virtual void setData(const std::uint8_t* bytes) = 0;

    /// Copies the data to `bytes`, with room for getDataSize() of them. Returns getStatus(); the
    /// data is copied in any case.
    virtual bool getData(std::uint8_t* bytes) const = 0;

    /// Writes the data to the chip at `fd`, an I2C device bound to the chip's address. `page`
    /// (0 to 11, 13 to 17 or 255) decides whether that is allowed. Makes up to three attempts;
    /// false if it is not allowed or, with the errno of the last one, if all attempts failed.
    virtual bool write(int fd, std::uint8_t page) = 0;

    /// Reads the data from the chip; otherwise like write(). On failure the data is unchanged.
    virtual bool read(int fd, std::uint8_t page) = 0;

    std::uint8_t getCode() const { return m_code; }
    /// Number of data bytes, 0 to 255.
    std::uint8_t getDataSize() const { return m_dataSize; }
    /// Whether the last transfer succeeded; false before the first.
    bool getStatus() const { return m_status; }
    void setStatus(bool status) { m_status = status; }

    /// Whether `access` (ACCESS_READ or ACCESS_WRITE) is allowed on `page`. False, with a message,
    /// for a page that does not exist.
    bool isValid(std::uint32_t access, std::uint8_t page) const;

    /// Whether constants and data are equal; the last transfer doesn't matter.
    bool operator==(const Command& other) const;

    /// Whether the data differs. Not the negation of ==: two commands of different codes with equal
    /// data are neither equal nor unequal.
    bool operator!=(const Command& other) const;

    /// The constants and the data as two or more lines of text.
    std::string toString() const;

    /// Makes the command with `code`, its data all zero. Returns null, with a message, if the
    /// catalogue has none. The caller owns the result.
    static Command* create(unsigned int code);

    static constexpr bool isChannelPage(std::uint8_t page) { return page < CHANNELS; }
    static constexpr bool isTemperaturePage(std::uint8_t page)
    {
        return page >= FIRST_SENSOR_PAGE && page < FIRST_SENSOR_PAGE + SENSORS;
    }
    static constexpr bool isAllPages(std::uint8_t page) { return page == ALL_PAGES; }

protected:
    Command(std::uint8_t code, std::uint8_t dataSize, Access channels, Access sensors,
            Access device) noexcept;
    Command(const Command&) = default;
    Command& operator=(const Command&) = default;

    /// Starts a transfer. False, with the message of the operation, if `access` is not allowed on
    /// `page`.
    bool begin(std::uint32_t access, std::uint8_t page);

    /// Makes up to three attempts to send `data` as an SMBus transaction of the type `size`.
    bool writeSmbus(int fd, std::uint8_t page, std::uint32_t size, const i2c_smbus_data& data);

    /// The same for reading; `data` is what was received if the result is true.
    bool readSmbus(int fd, std::uint8_t page, std::uint32_t size, i2c_smbus_data& data);

    /// Counts and logs a failed attempt on behalf of `caller`, and pauses. Leaves `reason` in
    /// errno.
    void retry(const char* caller, int reason);

    std::int32_t m_retries; ///< attempts left in the current transfer
    std::uint8_t m_code;
    std::uint8_t m_dataSize;
    Access m_channelAccess;
    Access m_temperatureAccess;
    Access m_allPagesAccess;
    bool m_status;
};

/// A command without data: writing it makes the chip act (SMBus Send Byte).
class NullCommand : public Command {
public:
    static constexpr std::uint8_t SIZE = 0;

    NullCommand(std::uint8_t code, Access channels, Access sensors, Access device) noexcept
        : Command(code, SIZE, channels, sensors, device)
    {
    }

    std::string dataToString() const override;
    bool compare(const Command* other) const override;
    void setData(const std::uint8_t* bytes) override;
    bool getData(std::uint8_t* bytes) const override;
    bool write(int fd, std::uint8_t page) override;
    /// Transfers nothing: the result says whether reading is allowed.
    bool read(int fd, std::uint8_t page) override;
};

/// A register of one byte (SMBus Read Byte, Write Byte).
class ByteCommand : public Command {
public:
    static constexpr std::uint8_t SIZE = 1;

    ByteCommand(std::uint8_t code, Access channels, Access sensors, Access device) noexcept
        : Command(code, SIZE, channels, sensors, device)
    {
    }

    std::string dataToString() const override;
    bool compare(const Command* other) const override;
    void setData(const std::uint8_t* bytes) override;
    bool getData(std::uint8_t* bytes) const override;
    bool write(int fd, std::uint8_t page) override;
    bool read(int fd, std::uint8_t page) override;

    std::uint8_t getByte() const { return m_byte; }
    void setByte(std::uint8_t byte) { m_byte = byte; }

protected:
    std::uint8_t m_byte = 0;
};

/// A register of 16 bits (SMBus Read Word, Write Word).
class WordCommand : public Command {
public:
    static constexpr std::uint8_t SIZE = 2;

    WordCommand(std::uint8_t code, Access channels, Access sensors, Access device) noexcept
        : Command(code, SIZE, channels, sensors, device)
    {
    }

    std::string dataToString() const override;
    bool compare(const Command* other) const override;
    void setData(const std::uint8_t* bytes) override;
    bool getData(std::uint8_t* bytes) const override;
    bool write(int fd, std::uint8_t page) override;
    bool read(int fd, std::uint8_t page) override;

    std::uint16_t getWord() const { return m_word; }
    void setWord(std::uint16_t word) { m_word = word; }

protected:
    std::uint16_t m_word = 0; ///< the number, independent of any byte order
};

/// A register of up to 255 bytes, moved as they are: no byte count is added or removed.
class BlockCommand : public Command {
public:
    /// Room for the largest block.
    static constexpr std::size_t MAX_DATA_SIZE = 255;

    BlockCommand(std::uint8_t code, std::uint8_t dataSize, Access channels, Access sensors,
                 Access device) noexcept
        : Command(code, dataSize, channels, sensors, device)
    {
    }

    /// Two digits and a blank per byte, a line end after every 32nd byte.
    std::string dataToString() const override;
    bool compare(const Command* other) const override;
    void setData(const std::uint8_t* bytes) override;
    bool getData(std::uint8_t* bytes) const override;
    /// Sends at most the 32 bytes of an SMBus block.
    bool write(int fd, std::uint8_t page) override;
    /// Addresses the chip itself: the address bound to `fd` is not used.
    bool read(int fd, std::uint8_t page) override;

protected:
    std::uint8_t m_data[MAX_DATA_SIZE] = {}; ///< bytes after m_dataSize stay 0
};

// The classes of the catalogue, each with its code and its number of data bytes. Page puts the page
// number into its data before it is written, so that writing it selects that page on the chip.
#define COMMAND_ROW(code, name, base, channels, sensors, device, ...)                              \
    class name : public base##Command {                                                            \
    public:                                                                                        \
        static constexpr std::uint8_t CODE = code;                                                 \
        name() noexcept : base##Command(CODE, channels, sensors, device) {}                        \
    };
#define BLOCK_ROW(code, name, size, channels, sensors, device, ...)                                \
    class name : public BlockCommand {                                                             \
    public:                                                                                        \
        static constexpr std::uint8_t CODE = code;                                                 \
        static constexpr std::uint8_t SIZE = size;                                                 \
        name() noexcept : BlockCommand(CODE, SIZE, channels, sensors, device) {}                   \
    };
#define PAGE_ROW(code, name, base, channels, sensors, device, ...)                                 \
    class name : public base##Command {                                                            \
    public:                                                                                        \
        static constexpr std::uint8_t CODE = code;                                                 \
        name() noexcept : base##Command(CODE, channels, sensors, device) {}                        \
        bool write(int fd, std::uint8_t page) override;                                            \
    };
#include "commandCatalogue.def"
