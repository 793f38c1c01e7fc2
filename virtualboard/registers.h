// The chip's register table: what each register is, on which pages it answers, where its copies lie
// in an image of the chip's memory, and what it holds from the factory. Used by the chip's model
// and by tests that look into a board.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "commandCatalogue.h"

namespace virtualboard {

/// A row of the catalogue, and where the chip keeps its value.
struct Register : catalogue::Row {
    std::uint8_t copies;  ///< 12 by channel, 5 by sensor, 1 for the device, 0 without data
    std::uint16_t offset; ///< of the first copy in an image, bytes in bus order

    /// Offset in an image of the copy for `page`, on which the register must have access.
    constexpr std::size_t positionOn(int page) const
    {
        if (copies <= 1 || page == Command::ALL_PAGES) {
            return offset;
        }
        const int copy = page < Command::CHANNELS ? page : page - Command::FIRST_SENSOR_PAGE;
        return offset + static_cast<std::size_t>(copy) * size;
    }
};

/// Whether it is one of the status registers, which CLEAR_FAULTS clears.
constexpr bool isStatus(int code)
{
    return code >= StatusWord::CODE && code <= StatusMfrSpecific::CODE;
}

constexpr auto makeRegisters()
{
    std::array<Register, std::size(catalogue::ROWS)> table{};
    std::size_t offset = 0;
    for (std::size_t i = 0; i < table.size(); ++i) {
        const catalogue::Row& row = catalogue::ROWS[i];
        // Page 255 shows one register for the device; only OPERATION is written there on behalf of
        // all channels.
        const int group = row.channelAccess != Command::NO ? Command::CHANNELS : Command::SENSORS;
        const int copies = row.size == 0 ? 0 : isShared(row) ? 1 : group;
        table[i] = {row, static_cast<std::uint8_t>(copies), static_cast<std::uint16_t>(offset)};
        offset += static_cast<std::size_t>(row.size) * table[i].copies;
    }
    return table;
}

inline constexpr auto REGISTERS = makeRegisters();

/// Bytes of an image: every copy of every register.
inline constexpr std::size_t IMAGE_SIZE =
    REGISTERS.back().offset + std::size_t{REGISTERS.back().size} * REGISTERS.back().copies;

/// The register with this code, or null.
const Register* findRegister(int code);

/// Writes the factory value of one copy of `reg` to `bytes`, `reg.size` bytes.
void factoryValue(const Register& reg, int copy, std::uint8_t* bytes);

} // namespace virtualboard
