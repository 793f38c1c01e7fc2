// The chip's register table: what each register is, on which pages it answers,
// where its copies lie in an image of the chip's memory, and what it holds from
// the factory. Used by the chip's model and by tests that look into a board.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "commandCatalogue.h"

namespace virtualboard {

/// Pages (MAX34460 data sheet): 0 to 11 the supplies, 13 to 17 the temperature
/// sensors, 255 the whole device.
inline constexpr int CHANNEL_COUNT = 12;
inline constexpr int FIRST_SENSOR_PAGE = 13;
inline constexpr int SENSOR_COUNT = 5;
inline constexpr int ALL_PAGES = 255;

/// The registers that the chip treats in a way of their own.
namespace code {
inline constexpr std::uint8_t PAGE = 0x00;
inline constexpr std::uint8_t OPERATION = 0x01;
inline constexpr std::uint8_t ON_OFF_CONFIG = 0x02;
inline constexpr std::uint8_t CLEAR_FAULTS = 0x03;
inline constexpr std::uint8_t WRITE_PROTECT = 0x10;
inline constexpr std::uint8_t STORE_DEFAULT_ALL = 0x11;
inline constexpr std::uint8_t RESTORE_DEFAULT_ALL = 0x12;
inline constexpr std::uint8_t STATUS_WORD = 0x79;
inline constexpr std::uint8_t STATUS_CML = 0x7E;
inline constexpr std::uint8_t STATUS_MFR_SPECIFIC = 0x80;
inline constexpr std::uint8_t MFR_MODEL = 0x9A;
inline constexpr std::uint8_t MFR_STORE_SINGLE = 0xFC;
} // namespace code

/// What becomes of a register at power-up.
enum class Storage : std::uint8_t {
    CONFIGURATION, ///< takes its value from flash
    VOLATILE,      ///< takes a fixed value
    FIXED,         ///< is part of the silicon, nothing changes it
};

struct Register {
    std::uint8_t code;
    std::uint8_t size;                                       ///< data bytes; 0: a bare command
    std::uint32_t channelAccess, sensorAccess, deviceAccess; ///< access masks by page group
    Storage storage;
    std::uint8_t copies;  ///< 12 by channel, 5 by sensor, 1 for the device, 0 without data
    std::uint16_t offset; ///< of the first copy in an image, bytes in bus order

    /// The access mask on `page`; 0: unknown there.
    constexpr std::uint32_t accessOn(int page) const
    {
        if (page == ALL_PAGES) {
            return deviceAccess;
        }
        return page < CHANNEL_COUNT ? channelAccess : sensorAccess;
    }

    /// Where in an image the copy for `page` lies, one on which it has access.
    constexpr std::size_t positionOn(int page) const
    {
        if (copies <= 1 || page == ALL_PAGES) {
            return offset;
        }
        const int copy = page < CHANNEL_COUNT ? page : page - FIRST_SENSOR_PAGE;
        return offset + static_cast<std::size_t>(copy) * size;
    }
};

constexpr bool isPage(int page)
{
    return (page >= 0 && page < CHANNEL_COUNT) || page == ALL_PAGES
           || (page >= FIRST_SENSOR_PAGE && page < FIRST_SENSOR_PAGE + SENSOR_COUNT);
}

/// Whether it is one of the status registers, which CLEAR_FAULTS clears.
constexpr bool isStatus(int code)
{
    return code >= code::STATUS_WORD && code <= code::STATUS_MFR_SPECIFIC;
}

constexpr Storage storageOf(int code)
{
    switch (code) {
    case 0x19: // CAPABILITY
    case 0x20: // VOUT_MODE
    case 0x98: // PMBUS_REVISION
    case 0x99: // MFR_ID
    case code::MFR_MODEL:
    case 0x9B: // MFR_REVISION
    case 0xDC: // MFR_NV_FAULT_LOG, kept erased
    case 0xE0: // MFR_FW_SERIAL
        return Storage::FIXED;
    case code::PAGE:
    case code::OPERATION:
    case code::WRITE_PROTECT:
    case 0x8B: // READ_VOUT
    case 0x8D: // READ_TEMPERATURE
    case 0xD4: // MFR_VOUT_PEAK
    case 0xD6: // MFR_TEMPERATURE_PEAK
    case 0xD7: // MFR_VOUT_MIN
    case 0xDD: // MFR_TIME_COUNT
    case 0xE3: // MFR_TEMPERATURE_AVG
    case code::MFR_STORE_SINGLE:
        return Storage::VOLATILE;
    default:
        return isStatus(code) ? Storage::VOLATILE : Storage::CONFIGURATION;
    }
}

constexpr auto makeRegisters()
{
    using namespace rights;
#define BOARD_ROW(code, size, channels, sensors, device)                                           \
    Register{code, size, channels, sensors, device, storageOf(code), 0, 0},
#define BOARD_NONE(code, name, channels, sensors, device)                                          \
    BOARD_ROW(code, 0, channels, sensors, device)
#define BOARD_BYTE(code, name, channels, sensors, device)                                          \
    BOARD_ROW(code, 1, channels, sensors, device)
#define BOARD_WORD(code, name, channels, sensors, device)                                          \
    BOARD_ROW(code, 2, channels, sensors, device)
#define BOARD_BLOCK(code, name, size, channels, sensors, device)                                   \
    BOARD_ROW(code, size, channels, sensors, device)
    std::array table{
        COMMAND_CATALOGUE(BOARD_BYTE, BOARD_NONE, BOARD_BYTE, BOARD_WORD, BOARD_BLOCK)};
#undef BOARD_ROW
#undef BOARD_NONE
#undef BOARD_BYTE
#undef BOARD_WORD
#undef BOARD_BLOCK
    std::size_t offset = 0;
    for (Register& reg : table) {
        // What page 255 shows is one register for the device; OPERATION alone
        // is written there on behalf of all channels.
        const bool shared = reg.deviceAccess != NO && reg.code != code::OPERATION;
        const int group = reg.channelAccess != NO ? CHANNEL_COUNT : SENSOR_COUNT;
        reg.copies = static_cast<std::uint8_t>(reg.size == 0 ? 0 : shared ? 1 : group);
        reg.offset = static_cast<std::uint16_t>(offset);
        offset += static_cast<std::size_t>(reg.size) * reg.copies;
    }
    return table;
}

inline constexpr auto REGISTERS = makeRegisters();

/// Bytes of an image: every copy of every register.
inline constexpr std::size_t IMAGE_SIZE =
    REGISTERS.back().offset + std::size_t{REGISTERS.back().size} * REGISTERS.back().copies;

/// The register with this code, or null.
const Register* findRegister(int code);

/// Writes what one copy of `reg` holds from the factory to `bytes`, `reg.size` bytes.
void factoryValue(const Register& reg, int copy, std::uint8_t* bytes);

} // namespace virtualboard
