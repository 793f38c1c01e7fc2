// The catalogue as a table: what each command is, on which pages it may be read and written, and
// what its value means. The parser of PM data files, pmfile and the virtual board look commands up
// here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "command.h"

namespace catalogue {

/// What a command stands for.
enum class Kind : std::uint8_t {
    ACTION,  ///< the chip does something; no data
    SETTING, ///< kept in flash and restored at power-up
    STATE,   ///< takes a fixed value at power-up, or changes by itself
    FIXED,   ///< part of the silicon, never changes
};

/// What a value means. Words with a unit are signed numbers in the PMBus format DIRECT.
enum class Format : std::uint8_t {
    NONE,    ///< no data
    BITS,    ///< hexadecimal: bit fields, and what has no known unit
    COUNT,   ///< decimal
    VOLTS,   ///< 1 mV per step
    RATIO,   ///< 32767 is 1
    CELSIUS, ///< 0.01 °C per step
    TIME,    ///< 0.2 ms per step, known from related chips only
    TEXT,    ///< characters
    VERSION, ///< the version record, versionRecord.h
};

/// A name as the PMBus standard writes it, made from that of the class: VOUT_OV_FAULT_LIMIT.
struct PmbusName {
    char text[24];
};

struct Row {
    std::uint8_t code;
    std::uint8_t size; ///< number of data bytes
    PmbusName name;
    std::uint32_t channelAccess, sensorAccess, deviceAccess; ///< access masks by page group
    Kind kind;
    Format format;
    std::uint16_t factory; ///< the value from the factory
};

constexpr PmbusName toPmbusName(const char* className)
{
    PmbusName name{};
    std::size_t length = 0;
    for (const char* at = className; *at != '\0'; ++at) {
        const bool capital = *at < 'a';
        const bool wordBegins =
            at != className && capital && (at[-1] >= 'a' || (at[1] >= 'a' && at[1] <= 'z'));
        if (wordBegins) {
            name.text[length++] = '_';
        }
        name.text[length++] = static_cast<char>(capital ? *at : *at - 'a' + 'A');
    }
    return name;
}

#define COMMAND_ROW(code, name, base, channels, sensors, device, kind, format, factory)            \
    {name::CODE,        name::SIZE,       toPmbusName(#name),                                      \
     Command::channels, Command::sensors, Command::device,                                         \
     Kind::kind,        Format::format,   factory},
/// In the order of the codes.
inline constexpr Row ROWS[] = {
#include "commandCatalogue.def"
};

constexpr std::array<std::uint8_t, 256> findPositions()
{
    std::array<std::uint8_t, 256> positions{};
    for (std::uint8_t& position : positions) {
        position = static_cast<std::uint8_t>(std::size(ROWS));
    }
    std::uint8_t next = 0;
    for (const Row& row : ROWS) {
        positions[row.code] = next++;
    }
    return positions;
}

/// The index of each code in ROWS; the size of ROWS if it is not there.
inline constexpr auto POSITIONS = findPositions();

/// The row of the command with this code, or null if there is none.
constexpr const Row* find(unsigned int code)
{
    const std::size_t position = code < POSITIONS.size() ? POSITIONS[code] : std::size(ROWS);
    return position < std::size(ROWS) ? &ROWS[position] : nullptr;
}

/// Whether the chip has the page.
constexpr bool isPage(int page)
{
    const auto byte = static_cast<std::uint8_t>(page);
    return page == byte
           && (Command::isChannelPage(byte) || Command::isTemperaturePage(byte)
               || Command::isAllPages(byte));
}

/// Whether the register is one for the whole device, the same on every page. OPERATION is not: on
/// page 255 it is written for all channels.
constexpr bool isShared(const Row& row)
{
    return row.deviceAccess != Command::NO && row.code != Operation::CODE;
}

/// The access mask of a command on a page that exists.
constexpr std::uint32_t accessOn(const Row& row, int page)
{
    return page == Command::ALL_PAGES                                ? row.deviceAccess
           : Command::isChannelPage(static_cast<std::uint8_t>(page)) ? row.channelAccess
                                                                     : row.sensorAccess;
}

/// Byte `i` of a register's value from the factory.
constexpr std::uint8_t factoryByte(const Row& row, unsigned int i)
{
    if (row.format == Format::TEXT || row.format == Format::VERSION) {
        return i % 2 == 0 ? '1' : '0';
    }
    return static_cast<std::uint8_t>(i < sizeof(row.factory) ? row.factory >> (8 * i) : 0);
}

/// Whether a chip with this WRITE_PROTECT ignores writes of the command (PMBus standard): the
/// second level spares PAGE and OPERATION, the third ON_OFF_CONFIG as well.
constexpr bool isProtected(std::uint8_t code, std::uint8_t level)
{
    constexpr std::uint8_t ALL = 0x80;
    constexpr std::uint8_t ALL_BUT_OPERATION = 0x40;
    constexpr std::uint8_t ALL_BUT_ON_OFF = 0x20;
    switch (code) {
    case WriteProtect::CODE:
        return false;
    case Page::CODE:
    case Operation::CODE:
        return (level & ALL) != 0;
    case OnOffConfig::CODE:
        return (level & (ALL | ALL_BUT_OPERATION)) != 0;
    default:
        return (level & (ALL | ALL_BUT_OPERATION | ALL_BUT_ON_OFF)) != 0;
    }
}

} // namespace catalogue
