// Numbers in a board's file: the high byte first, so that every machine reads every board. Used by
// what is kept there.
#pragma once

#include <array>
#include <cstdint>

namespace virtualboard {

using NumberBytes = std::array<std::uint8_t, 4>;

constexpr NumberBytes toBytes(std::uint32_t number)
{
    return {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
            static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

constexpr std::uint32_t toNumber(const NumberBytes& bytes)
{
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16
           | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

} // namespace virtualboard
