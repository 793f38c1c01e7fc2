#include "values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "text.h"
#include "versionRecord.h"

using catalogue::Format;
using catalogue::Row;

namespace {

/// A unit, its steps, and how it is written.
struct Unit {
    Format format;
    const char* name;
    int steps;
    int decimals;                  ///< enough for a step
    int fewest;                    ///< minimum number of decimals written
    int lowest;                    ///< lowest step; the highest is 0x7FFF, as words are signed
    std::string_view spellings[4]; ///< others that people use
};
constexpr Unit UNITS[] = {
    {Format::VOLTS, "V", 1000, 3, 3, 0, {"v"}},
    {Format::TIME, "ms", 5, 1, 0, 0, {"MS", "Ms"}},
    {Format::CELSIUS, "°C", 100, 2, 0, -0x8000, {"C", "degC", "deg C", "℃"}},
};

/// The bytes of the version record that hold versions; the rest has no meaning.
constexpr std::size_t VERSION_BYTES = 3;

const Unit* unitOf(const Row& row)
{
    const auto* unit = std::find_if(std::begin(UNITS), std::end(UNITS),
                                    [&](const Unit& one) { return one.format == row.format; });
    return unit == std::end(UNITS) ? nullptr : unit;
}

std::string inUnit(const Unit& unit, int number)
{
    std::string text = formatted("%.*f", unit.decimals, static_cast<double>(number) / unit.steps);
    std::size_t surplus = static_cast<std::size_t>(unit.decimals - unit.fewest);
    for (; surplus > 0 && text.back() == '0'; --surplus) {
        text.pop_back();
    }
    if (text.back() == '.') {
        text.pop_back();
    }
    return text + " " + unit.name;
}

int ratioFrom(double ratio)
{
    return static_cast<int>(std::lround(ratio * RATIO_ONE));
}

/// With as few decimals as identify the step.
std::string ratioText(int number)
{
    std::string text;
    for (int decimals = 1; text.empty() || ratioFrom(std::strtod(text.c_str(), nullptr)) != number;
         ++decimals) {
        text = formatted("%.*f", decimals, number / RATIO_ONE);
    }
    return text;
}

/// Printable characters, without the blanks that pad a text.
std::string quoted(std::span<const std::uint8_t> value)
{
    std::string text(value.begin(), value.end());
    const bool isPlain = std::all_of(text.begin(), text.end(),
                                     [](char c) { return c >= ' ' && c <= '~' && c != '"'; });
    text.erase(text.find_last_not_of(' ') + 1);
    return isPlain ? "\"" + text + "\"" : "";
}

/// "2.5 hw 3", followed by the other bytes in hexadecimal if they are not all 0.
std::string versionText(std::span<const std::uint8_t> value)
{
    std::string text = formatted("%d.%d hw %d", value[1], value[0], value[2]);
    const auto rest = value.subspan(VERSION_BYTES);
    if (std::any_of(rest.begin(), rest.end(), [](std::uint8_t byte) { return byte != 0; })) {
        text += " 0x";
        for (const std::uint8_t byte : rest) {
            text += formatted("%02X", byte);
        }
    }
    return text;
}

/// Removes `word` from the beginning of `text`, if it is there.
bool skip(std::string_view& text, std::string_view word)
{
    const bool begins = text.substr(0, word.size()) == word;
    text.remove_prefix(begins ? word.size() : 0);
    return begins;
}

/// Removes a number from the beginning of `text`, in a form that std::from_chars knows.
template <typename Number, typename Form>
bool take(std::string_view& text, Number& number, Form form)
{
    const char* const begin = text.data();
    const auto [end, fault] = std::from_chars(begin, begin + text.size(), number, form);
    text.remove_prefix(static_cast<std::size_t>(end - begin));
    return fault == std::errc{};
}

constexpr int DECIMAL = 10;
constexpr int HEXADECIMAL = 16;

/// Whether `text` is a number that fits into the register.
bool isNumber(const Row& row, std::string_view text, int base, unsigned int& number)
{
    return take(text, number, base) && text.empty() && number >> (8 * row.size) == 0;
}

/// How a register is written in hexadecimal.
std::string hexForm(const Row& row)
{
    return row.size > 2
               ? formatted("write %d bytes, %d hexadecimal digits after 0x", row.size, 2 * row.size)
           : row.size == 1 ? "write 0x00 to 0xFF"
                           : "write 0x0000 to 0xFFFF";
}

// Functions that read a value return how to correct it, or nothing if it is right.

std::string readInUnit(const Unit& unit, std::string_view text, int& number)
{
    double value = 0;
    const bool isRead = take(text, value, std::chars_format::fixed) && std::isfinite(value);
    const std::string_view name = trimmed(text);
    const bool isMeant = name.empty() || name == unit.name
                         || std::ranges::find(unit.spellings, name) != std::end(unit.spellings);
    if (!isRead || !isMeant) {
        const std::string example = inUnit(unit, 2 * unit.steps + unit.steps / 5);
        return isRead ? formatted("its unit is %s: write it as in %s", unit.name, example.c_str())
                      : "write a number and its unit, as in " + example;
    }
    // Two numbers are equal if their nearest double is the same.
    const auto unitsOf = [&unit](int steps) { return static_cast<double>(steps) / unit.steps; };
    std::string range =
        formatted("it has steps of %s, from %s to %s", inUnit(unit, 1).c_str(),
                  inUnit(unit, unit.lowest).c_str(), inUnit(unit, HIGHEST_WORD).c_str());
    if (value < unitsOf(unit.lowest) || value > unitsOf(HIGHEST_WORD)) {
        return range;
    }
    number = static_cast<int>(std::lround(value * unit.steps));
    if (value != unitsOf(number)) {
        return range + ": write " + inUnit(unit, number);
    }
    if (name == unit.name) {
        return "";
    }
    return (name.empty() ? "write its unit, too"
                         : formatted("write %s in place of %.*s", unit.name,
                                     static_cast<int>(name.size()), name.data()))
           + ": " + inUnit(unit, number);
}

std::string readRatio(std::string_view text, int& number)
{
    double ratio = 0;
    bool isRatio = take(text, ratio, std::chars_format::fixed);
    if (isRatio && skip(text, "/")) {
        double divisor = 0;
        isRatio = take(text, divisor, std::chars_format::fixed) && divisor > 0;
        ratio /= divisor;
    }
    isRatio = isRatio && text.empty() && ratio > 0 && ratio <= 1;
    number = isRatio ? ratioFrom(ratio) : 0;
    // 0 also for less than half a step.
    return number < 1 ? "write a ratio above 0 and up to 1, as in 0.125" : "";
}

std::string readDecimal(const Row& row, std::string_view text, std::vector<std::uint8_t>& value)
{
    if (const std::size_t comma = text.find(','); comma != std::string_view::npos) {
        const std::string mended = std::string(text).replace(comma, 1, ".");
        const bool isRight = readDecimal(row, mended, value).empty();
        return "write a point in place of the comma"
               + (isRight ? ": " + valueText(row, value) : "");
    }
    int number = 0;
    const Unit* const unit = unitOf(row);
    std::string error = unit == nullptr ? readRatio(text, number) : readInUnit(*unit, text, number);
    value = toBytes(row, static_cast<unsigned int>(number));
    return error;
}

std::string readQuoted(const Row& row, std::string_view text, std::vector<std::uint8_t>& value)
{
    const bool isQuoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    const std::string_view inner = isQuoted ? text.substr(1, text.size() - 2) : text;
    value.assign(inner.begin(), inner.end());
    if (!isQuoted || inner.size() > row.size || quoted(value).empty()) {
        return formatted("write up to %d ASCII characters in quotes, as in \"RACK A01\"", row.size);
    }
    value.resize(row.size, ' ');
    return "";
}

std::string readVersion(const Row& row, std::string_view text, std::vector<std::uint8_t>& value)
{
    std::uint8_t major = 0;
    std::uint8_t minor = 0;
    std::uint8_t hardware = 0;
    const bool isRead = take(text, major, DECIMAL) && skip(text, ".") && take(text, minor, DECIMAL)
                        && skip(text = trimmed(text), "hw")
                        && take(text = trimmed(text), hardware, DECIMAL);
    std::vector<std::uint8_t> rest;
    const bool isWhole = text.empty()
                         || (skip(text = trimmed(text), "0x") && readHexBytes(text, rest)
                             && rest.size() == row.size - VERSION_BYTES);
    if (!isRead || !isWhole) {
        return "write the version and the minimum hardware version, each number up to 255, as in "
               "2.5 hw 3";
    }
    value = {minor, major, hardware};
    value.insert(value.end(), rest.begin(), rest.end());
    value.resize(row.size);
    return "";
}

std::string readHex(const Row& row, std::string_view digits, std::vector<std::uint8_t>& value)
{
    if (row.size > 2) {
        return readHexBytes(digits, value) && value.size() == row.size ? "" : hexForm(row);
    }
    unsigned int number = 0;
    if (!isNumber(row, digits, HEXADECIMAL, number)) {
        return hexForm(row);
    }
    value = toBytes(row, number);
    return "";
}

std::string readCount(const Row& row, std::string_view text, std::vector<std::uint8_t>& value)
{
    unsigned int number = 0;
    if (!isNumber(row, text, DECIMAL, number)) {
        return formatted("write a number from 0 to %d, or in hexadecimal after 0x",
                         (1 << (8 * row.size)) - 1);
    }
    value = toBytes(row, number);
    return "";
}

/// The correction of a bit field without 0x: its digits may be meant in hexadecimal or decimal.
std::string refuseBits(const Row& row, std::string_view text)
{
    unsigned int decimal = 0;
    if (row.size > 2 || !isNumber(row, text, DECIMAL, decimal)) {
        return hexForm(row);
    }
    const auto line = [&row](unsigned int number) {
        return std::string(row.name.text) + " " + hexValue(row, toBytes(row, number));
    };
    unsigned int hexadecimal = 0;
    const bool isEither = isNumber(row, text, HEXADECIMAL, hexadecimal) && hexadecimal != decimal;
    const std::string lines =
        isEither ? formatted("%s, or %s if %.*s is decimal", line(hexadecimal).c_str(),
                             line(decimal).c_str(), static_cast<int>(text.size()), text.data())
                 : line(decimal);
    return "bit fields are written in hexadecimal: write " + lines;
}

} // namespace

std::vector<std::uint8_t> toBytes(const Row& row, unsigned int number)
{
    std::vector<std::uint8_t> bytes(row.size);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
    return bytes;
}

std::vector<std::uint8_t> factoryValue(const Row& row)
{
    std::vector<std::uint8_t> bytes(row.size);
    for (unsigned int i = 0; i < row.size; ++i) {
        bytes[i] = catalogue::factoryByte(row, i);
    }
    return bytes;
}

std::string hexValue(const Row& row, std::span<const std::uint8_t> value)
{
    std::string text = row.size == 0 ? "" : "0x";
    for (std::size_t i = 0; i < value.size(); ++i) {
        // A number has its highest digit first, a register its lowest byte.
        text += formatted("%02X", row.size > 2 ? value[i] : value[value.size() - 1 - i]);
    }
    return text;
}

std::string valueText(const Row& row, std::span<const std::uint8_t> value)
{
    const int number = numberOf(row, value);
    if (const Unit* unit = unitOf(row)) {
        return number < unit->lowest ? hexValue(row, value) : inUnit(*unit, number);
    }
    std::string text;
    if (row.format == Format::RATIO && number > 0) {
        text = ratioText(number);
    } else if (row.format == Format::COUNT) {
        text = formatted("%d", number);
    } else if (row.format == Format::TEXT) {
        text = quoted(value);
    } else if (row.format == Format::VERSION) {
        text = versionText(value);
    }
    return text.empty() ? hexValue(row, value) : text;
}

std::string spokenValue(const Row& row, std::span<const std::uint8_t> value)
{
    return row.format == Format::VERSION ? formatted("settings %d.%d, for hardware %d and later",
                                                     value[1], value[0], value[2])
                                         : valueText(row, value);
}

std::string readValue(const Row& row, std::string_view text, std::vector<std::uint8_t>& value)
{
    text = trimmed(text);
    value.clear();
    if (row.size == 0) {
        return text.empty() ? "" : "write no value: it has no data";
    }
    if (skip(text, "0x")) {
        return readHex(row, text, value);
    }
    if (unitOf(row) != nullptr) {
        return readDecimal(row, text, value);
    }
    switch (row.format) {
    case Format::RATIO:
        return readDecimal(row, text, value);
    case Format::COUNT:
        return readCount(row, text, value);
    case Format::TEXT:
        return readQuoted(row, text, value);
    case Format::VERSION:
        return readVersion(row, text, value);
    default:
        return refuseBits(row, text);
    }
}

int numberOf(const Row& row, std::span<const std::uint8_t> value)
{
    if (row.size == 1) {
        return value[0];
    }
    return row.size == 2 ? static_cast<std::int16_t>(value[0] | value[1] << 8) : 0;
}

std::string hexBytes(std::span<const std::uint8_t> bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += text.empty() ? "" : " ";
        text += formatted("%02X", byte);
    }
    return text;
}

bool readHexBytes(std::string_view text, std::vector<std::uint8_t>& bytes)
{
    bytes.clear();
    for (std::size_t at = 0; at < text.size(); at += 2) {
        std::string_view digits = text.substr(at, 2);
        std::uint8_t byte = 0;
        if (digits.size() != 2 || !take(digits, byte, HEXADECIMAL) || !digits.empty()) {
            return false;
        }
        bytes.push_back(byte);
    }
    return true;
}
