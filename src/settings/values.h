// The values of registers as people write them: 3.300 V, 85 °C, 62.4 ms. Lists are written and read
// with these, and whatever pmfile shows.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "commandCatalogue.h"

/// The number of the ratio 1.
inline constexpr double RATIO_ONE = 32767;

/// The highest number in a register of two bytes, which is signed.
inline constexpr int HIGHEST_WORD = 0x7FFF;

/// The value as in a list; in hexadecimal if its unit can't express it. readValue turns the text
/// back into the value. Empty for a command without data.
std::string valueText(const catalogue::Row& row, std::span<const std::uint8_t> value);

/// The same for people: the version record spelled out.
std::string spokenValue(const catalogue::Row& row, std::span<const std::uint8_t> value);

/// The value as a plain hexadecimal number, a block byte by byte.
std::string hexValue(const catalogue::Row& row, std::span<const std::uint8_t> value);

/// Reads the value of a register from a list. Returns how to correct the text, or "" if it is
/// right.
std::string readValue(const catalogue::Row& row, std::string_view text,
                      std::vector<std::uint8_t>& value);

/// The bytes of a register of one or two bytes; numberOf is the way back.
std::vector<std::uint8_t> toBytes(const catalogue::Row& row, unsigned int number);

/// The bytes of a register as they come from the factory.
std::vector<std::uint8_t> factoryValue(const catalogue::Row& row);

/// The number in a register of one or two bytes; words are signed, as limits and times are.
int numberOf(const catalogue::Row& row, std::span<const std::uint8_t> value);

/// The bytes in hexadecimal, separated by blanks.
std::string hexBytes(std::span<const std::uint8_t> bytes);

/// The bytes that `text` gives in hexadecimal, two digits each. False if it is something else.
bool readHexBytes(std::string_view text, std::vector<std::uint8_t>& bytes);
