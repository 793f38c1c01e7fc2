#include "values.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "pmDataFile.h"
#include "versionRecord.h"

using catalogue::Format;
using catalogue::Row;

namespace {

/// A unit, how many steps it has, and how it is written.
struct Unit {
    Format format;
    const char* name;
    int steps;
    int decimals; ///< enough for a step
    int fewest;   ///< decimals that are always written
    int lowest;   ///< step; the highest is 0x7FFF, as words are signed
};
constexpr Unit UNITS[] = {
    {Format::VOLTS, "V", 1000, 3, 3, 0},
    {Format::TIME, "ms", 5, 1, 0, 0},
    {Format::CELSIUS, "°C", 100, 2, 0, -0x8000},
};
constexpr int HIGHEST = 0x7FFF;
constexpr double RATIO_ONE = 32767;

/// Of the version record, the bytes that versions are in; what is behind them has no meaning.
constexpr std::size_t VERSION_BYTES = 3;

const Unit* unitOf(const Row& row)
{
    const auto* unit = std::find_if(std::begin(UNITS), std::end(UNITS),
                                    [&](const Unit& one) { return one.format == row.format; });
    return unit == std::end(UNITS) ? nullptr : unit;
}

// So that the compiler checks the format. NOLINTNEXTLINE(cert-dcl50-cpp)
__attribute__((format(printf, 1, 2))) std::string print(const char* format, ...)
{
    char text[64];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return text;
}

std::vector<std::uint8_t> toBytes(const Row& row, unsigned int number)
{
    std::vector<std::uint8_t> bytes(row.size);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(i < sizeof(number) ? number >> (8 * i) : 0);
    }
    return bytes;
}

std::string inUnit(const Unit& unit, int number)
{
    std::string text = print("%.*f", unit.decimals, static_cast<double>(number) / unit.steps);
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

/// With as few decimals as say which step it is.
std::string ratioText(int number)
{
    std::string text;
    for (int decimals = 1; text.empty() || ratioFrom(std::strtod(text.c_str(), nullptr)) != number;
         ++decimals) {
        text = print("%.*f", decimals, number / RATIO_ONE);
    }
    return text;
}

/// Printable characters; blanks at the end are those that fill up a text.
std::string quoted(std::span<const std::uint8_t> value)
{
    std::string text(value.begin(), value.end());
    const bool printable = std::all_of(text.begin(), text.end(),
                                       [](char c) { return c >= ' ' && c <= '~' && c != '"'; });
    text.erase(text.find_last_not_of(' ') + 1);
    return printable ? "\"" + text + "\"" : "";
}

/// "2.5 hw 3", with the bytes behind the version in hexadecimal if they are not all 0.
std::string versionText(std::span<const std::uint8_t> value)
{
    std::string text = print("%d.%d hw %d", value[1], value[0], value[2]);
    const auto rest = value.subspan(VERSION_BYTES);
    if (std::any_of(rest.begin(), rest.end(), [](std::uint8_t byte) { return byte != 0; })) {
        text += " 0x";
        for (const std::uint8_t byte : rest) {
            text += print("%02X", byte);
        }
    }
    return text;
}

std::string_view trimmed(std::string_view text)
{
    const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

/// Takes `word` from the begin of `text`.
bool skip(std::string_view& text, std::string_view word)
{
    const bool begins = text.substr(0, word.size()) == word;
    text.remove_prefix(begins ? word.size() : 0);
    return begins;
}

/// Takes decimal digits from the begin of `text`; false if there is none or are too many.
bool takeDigits(std::string_view& text, long long& number)
{
    constexpr std::size_t MOST = 7; // products of numbers with a fraction stay exact
    const std::size_t count = std::min(text.find_first_not_of("0123456789"), text.size());
    if (count == 0 || count > MOST) {
        return false;
    }
    number = std::strtoll(std::string(text.substr(0, count)).c_str(), nullptr, 10);
    text.remove_prefix(count);
    return true;
}

/// A decimal number without rounding: `digits` over a power of ten.
struct Decimal {
    long long digits = 0;
    long long scale = 1;

    double value() const { return static_cast<double>(digits) / static_cast<double>(scale); }
};

bool takeDecimal(std::string_view& text, Decimal& decimal)
{
    const bool negative = skip(text, "-");
    if (!takeDigits(text, decimal.digits)) {
        return false;
    }
    if (skip(text, ".")) {
        const std::size_t before = text.size();
        long long fraction = 0;
        if (!takeDigits(text, fraction)) {
            return false;
        }
        for (std::size_t i = text.size(); i < before; ++i) {
            decimal.scale *= 10;
        }
        decimal.digits = decimal.digits * decimal.scale + fraction;
    }
    decimal.digits *= negative ? -1 : 1;
    return true;
}

/// Whether the unit is meant, though perhaps not written well: a number before it is right.
bool isMeant(const Unit& unit, std::string_view text)
{
    return text.empty()
           || std::ranges::equal(text, std::string_view(unit.name), [](char one, char other) {
                  return std::tolower(static_cast<unsigned char>(one))
                         == std::tolower(static_cast<unsigned char>(other));
              });
}

bool readInUnit(const Unit& unit, std::string_view text, int& number, std::string& error)
{
    Decimal decimal;
    if (!takeDecimal(text, decimal) || !isMeant(unit, trimmed(text))) {
        error =
            "write a number and its unit, as in " + inUnit(unit, 2 * unit.steps + unit.steps / 5);
        return false;
    }
    const long long steps = decimal.digits * unit.steps; // over the scale
    const std::string range = "its step is " + inUnit(unit, 1) + ", from "
                              + inUnit(unit, unit.lowest) + " to " + inUnit(unit, HIGHEST);
    if (steps < unit.lowest * decimal.scale || steps > HIGHEST * decimal.scale) {
        error = range;
        return false;
    }
    number = static_cast<int>(std::lround(decimal.value() * unit.steps));
    const bool isExact = number * decimal.scale == steps;
    if (!isExact || trimmed(text) != unit.name) {
        error = (isExact ? "" : range + ": ") + "write " + inUnit(unit, number);
        return false;
    }
    return true;
}

bool readRatio(std::string_view text, int& number, std::string& error)
{
    Decimal decimal;
    const bool isRatio = takeDecimal(text, decimal) && text.empty() && decimal.digits > 0
                         && decimal.digits <= decimal.scale;
    number = isRatio ? ratioFrom(decimal.value()) : 0;
    if (number < 1) { // also what is less than half a step
        error = "write a ratio above 0 and up to 1, as in 0.125";
        return false;
    }
    return true;
}

bool readText(const Row& row, std::string_view text, std::vector<std::uint8_t>& value,
              std::string& error)
{
    const bool isQuoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    const std::string_view inner = isQuoted ? text.substr(1, text.size() - 2) : text;
    value.assign(inner.begin(), inner.end());
    if (!isQuoted || inner.size() > row.size || quoted(value).empty()) {
        error = "write up to " + std::to_string(row.size)
                + " ASCII characters in quotes, as in \"RACK A01\"";
        return false;
    }
    value.resize(row.size, ' ');
    return true;
}

bool readVersion(const Row& row, std::string_view text, std::vector<std::uint8_t>& value,
                 std::string& error)
{
    long long major = 0;
    long long minor = 0;
    long long hardware = 0;
    const bool read = takeDigits(text, major) && skip(text, ".") && takeDigits(text, minor)
                      && skip(text = trimmed(text), "hw")
                      && takeDigits(text = trimmed(text), hardware);
    std::vector<std::uint8_t> rest;
    const bool whole = text.empty()
                       || (skip(text = trimmed(text), "0x") && readHexBytes(text, rest)
                           && rest.size() == row.size - VERSION_BYTES);
    if (!read || !whole || std::max({major, minor, hardware}) > 0xFF) {
        error = "write the version and the least hardware version, each number up to 255, as in "
                "2.5 hw 3";
        return false;
    }
    value = {static_cast<std::uint8_t>(minor), static_cast<std::uint8_t>(major),
             static_cast<std::uint8_t>(hardware)};
    value.insert(value.end(), rest.begin(), rest.end());
    value.resize(row.size);
    return true;
}

bool readHex(const Row& row, std::string_view digits, std::vector<std::uint8_t>& value,
             std::string& error)
{
    const bool isBlock = row.size > 2;
    const bool known = digits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
    if (isBlock) {
        if (!readHexBytes(digits, value) || value.size() != row.size) {
            error = "write " + std::to_string(row.size) + " bytes, " + std::to_string(2 * row.size)
                    + " hexadecimal digits behind 0x";
            return false;
        }
        return true;
    }
    const unsigned int number = pmDataFile::parseHex(digits, 0, digits.size());
    if (!known || digits.empty() || number >> (8 * row.size) != 0) {
        error = row.size == 1 ? "write 0x00 to 0xFF" : "write 0x0000 to 0xFFFF";
        return false;
    }
    value = toBytes(row, number);
    return true;
}

bool readCount(const Row& row, std::string_view text, std::vector<std::uint8_t>& value,
               std::string& error)
{
    long long number = 0;
    const long long most = row.size == 1 ? 0xFF : 0xFFFF;
    if (row.size > 2 || !takeDigits(text, number) || !text.empty() || number > most) {
        error = row.size > 2 ? "write hexadecimal digits behind 0x"
                             : "write a number from 0 to " + std::to_string(most)
                                   + ", or in hexadecimal behind 0x";
        return false;
    }
    value = toBytes(row, static_cast<unsigned int>(number));
    return true;
}

} // namespace

std::string hexValue(const Row& row, std::span<const std::uint8_t> value)
{
    std::string text = row.size == 0 ? "" : "0x";
    for (std::size_t i = 0; i < value.size(); ++i) {
        // A number has its highest digit first, the register its lowest byte.
        text += print("%02X", row.size > 2 ? value[i] : value[value.size() - 1 - i]);
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
        text = std::to_string(number);
    } else if (row.format == Format::TEXT) {
        text = quoted(value);
    } else if (row.format == Format::VERSION) {
        text = versionText(value);
    }
    return text.empty() ? hexValue(row, value) : text;
}

std::string spokenValue(const Row& row, std::span<const std::uint8_t> value)
{
    return row.format == Format::VERSION
               ? print("settings %d.%d, for hardware %d and later", value[1], value[0], value[2])
               : valueText(row, value);
}

bool readValue(const Row& row, std::string_view text, std::vector<std::uint8_t>& value,
               std::string& error)
{
    text = trimmed(text);
    value.clear();
    if (row.size == 0) {
        error = "write nothing behind it: it has no data";
        return text.empty();
    }
    if (text.substr(0, 2) == "0x") {
        return readHex(row, text.substr(2), value, error);
    }
    int number = 0;
    if (const Unit* unit = unitOf(row)) {
        const bool read = readInUnit(*unit, text, number, error);
        value = toBytes(row, static_cast<unsigned int>(number));
        return read;
    }
    switch (row.format) {
    case Format::RATIO:
        if (!readRatio(text, number, error)) {
            return false;
        }
        value = toBytes(row, static_cast<unsigned int>(number));
        return true;
    case Format::TEXT:
        return readText(row, text, value, error);
    case Format::VERSION:
        return readVersion(row, text, value, error);
    default:
        return readCount(row, text, value, error);
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
        text += print("%02X", byte);
    }
    return text;
}

bool readHexBytes(std::string_view text, std::vector<std::uint8_t>& bytes)
{
    bytes.clear();
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const std::string_view digits = text.substr(at, 2);
        if (digits.size() != 2
            || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos) {
            return false;
        }
        bytes.push_back(static_cast<std::uint8_t>(pmDataFile::parseHex(digits, 0, 2)));
    }
    return true;
}
