// The catalogue as a table: what each command is, on which pages it may be read and written, and
// what becomes of its value. Whoever reads PM data files or plays the chip looks commands up here.
#pragma once

#include <cstdint>

#include "command.h"

namespace catalogue {

/// What a command stands for (data sheets of the chip's family).
enum class Kind : std::uint8_t {
    ACTION,  ///< the chip does something; no data
    SETTING, ///< kept in flash and put back at power-up
    STATE,   ///< takes a fixed value at power-up, or changes by itself
    FIXED,   ///< part of the silicon, nothing changes it
};

struct Row {
    std::uint8_t code;
    std::uint8_t size;                                       ///< number of data bytes
    std::uint32_t channelAccess, sensorAccess, deviceAccess; ///< access masks by page group
    Kind kind;
};

#define COMMAND_ROW(code, name, base, channels, sensors, device, kind)                             \
    {name::CODE, name::SIZE, Command::channels, Command::sensors, Command::device, Kind::kind},
/// In the order of the codes.
inline constexpr Row ROWS[] = {
#include "commandCatalogue.def"
};

/// The row of the command with this code, or null if there is none.
constexpr const Row* find(unsigned int code)
{
    for (const Row& row : ROWS) {
        if (row.code == code) {
            return &row;
        }
    }
    return nullptr;
}

} // namespace catalogue
