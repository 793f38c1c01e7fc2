#include "PowerFileParser.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fstream>

#include "commandCatalogue.h"
#include "log.h"

namespace {

// Positions and widths of the fields in an Intel HEX record, in characters.
constexpr unsigned int COUNT_POSITION = 1;
constexpr unsigned int COUNT_WIDTH = 2;
constexpr unsigned int ADDRESS_POSITION = 3;
constexpr unsigned int ADDRESS_WIDTH = 4;
constexpr unsigned int TYPE_POSITION = 7;
constexpr unsigned int TYPE_WIDTH = 2;
constexpr unsigned int DATA_POSITION = 9;
constexpr unsigned int CHECKSUM_WIDTH = 2;

/// Lines up to this length are blank or stray: no record is as short.
constexpr std::size_t MAX_SKIPPED_LENGTH = 10;

constexpr unsigned int DIGITS_PER_BYTE = 2;

/// An entry begins with its data length and its command code, a byte each.
constexpr unsigned int ENTRY_HEAD_DIGITS = 2 * DIGITS_PER_BYTE;

/// Far beyond any real file, which has some 5 KB: its commands still fit into a board's
/// memory, and a source without an end, such as a device, is stopped before it fills that.
constexpr std::size_t MAX_FILE_SIZE = std::size_t{16} * 1024 * 1024;

/// The value of each character as a hexadecimal digit, -1 if it is none. Large files
/// take half the time with a table, as no branch depends on the digit.
constexpr std::array<std::int8_t, 256> DIGIT_VALUES = [] {
    std::array<std::int8_t, 256> values{};
    for (std::int8_t& value : values) {
        value = -1;
    }
    for (std::uint8_t i = 0; i < 16; ++i) {
        values[static_cast<std::uint8_t>("0123456789abcdef"[i])] = static_cast<std::int8_t>(i);
        values[static_cast<std::uint8_t>("0123456789ABCDEF"[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}();

/// The value of a hexadecimal digit, or -1 if `c` is none.
int digitValue(char c)
{
    return DIGIT_VALUES[static_cast<std::uint8_t>(c)];
}

bool isDigit(char c)
{
    return digitValue(c) >= 0;
}

/// Reads what the file holds into `text`. Returns what keeps it from being read whole,
/// in words; null if nothing does. A file that yields nothing at all, such as a folder,
/// is an empty one.
const char* readText(const std::string& fileName, std::string& text)
{
    struct stat status = {};
    if (stat(fileName.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        text.reserve(std::min(static_cast<std::size_t>(status.st_size), MAX_FILE_SIZE));
    }
    std::ifstream file(fileName);
    char chunk[16 * 1024];
    do {
        file.read(chunk, sizeof(chunk));
        text.append(chunk, static_cast<std::size_t>(file.gcount()));
        if (text.size() > MAX_FILE_SIZE) {
            return "it is too large";
        }
    } while (file);
    return file.bad() && !text.empty() ? "reading it failed on the way" : nullptr;
}

/// What keeps `line` from being a record, in words; null if it is one.
const char* findFault(const std::string& line, unsigned int byteCount)
{
    const std::size_t length = DATA_POSITION + DIGITS_PER_BYTE * byteCount + CHECKSUM_WIDTH;
    const auto begin = line.begin() + COUNT_POSITION;
    const auto end = line.begin() + static_cast<std::ptrdiff_t>(std::min(length, line.size()));
    if (!std::all_of(begin, end, isDigit)) {
        return "holds something other than hexadecimal digits";
    }
    return line.size() < length ? "ends before its checksum" : nullptr;
}

} // namespace

std::string PowerFileParser::parseFile(const std::string& fileName)
{
    m_hexData.clear();
    m_error.clear();

    std::string text;
    if (const char* fault = readText(fileName, text)) {
        refuse(fault);
        return m_hexData;
    }

    m_hexData.reserve(text.size());
    std::string line;
    int lineNumber = 0;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        line.assign(text, start, end - start);
        start = end + 1;
        ++lineNumber;
        if (line.size() <= MAX_SKIPPED_LENGTH) {
            continue;
        }
        LOG(DEBUG3, "%s", line.c_str());
        if (const char* fault = findFault(line, parseHex(line, COUNT_POSITION, COUNT_WIDTH))) {
            refuse("line " + std::to_string(lineNumber) + " " + fault);
            return m_hexData;
        }
        m_hexData += parseLine(line);
    }
    checkEntries();
    return m_hexData;
}

std::string PowerFileParser::parseLine(const std::string& line) const
{
    if (line.size() < DATA_POSITION) {
        return "";
    }
    const unsigned int byteCount = parseHex(line, COUNT_POSITION, COUNT_WIDTH);
    const unsigned int dataDigits = DIGITS_PER_BYTE * byteCount;
    std::string data = line.substr(DATA_POSITION, dataDigits);
    LOG(DEBUG, "%02x %04x %d %s %02x\n", byteCount, parseHex(line, ADDRESS_POSITION, ADDRESS_WIDTH),
        parseHex(line, TYPE_POSITION, TYPE_WIDTH) != 0 ? 1 : 0, data.c_str(),
        parseHex(line, DATA_POSITION + dataDigits, CHECKSUM_WIDTH));
    return data;
}

unsigned int PowerFileParser::parseHex(const std::string& text, unsigned int position,
                                       unsigned int length) const
{
    const std::size_t end = std::min(text.size(), std::size_t{position} + length);
    std::size_t at = position;
    // The first test spares the common case a call.
    while (at < end && !isDigit(text[at])
           && std::isspace(static_cast<unsigned char>(text[at])) != 0) {
        ++at;
    }
    unsigned int value = 0;
    for (; at < end && isDigit(text[at]); ++at) {
        value = 16 * value + static_cast<unsigned int>(digitValue(text[at]));
    }
    return value;
}

MfrDate PowerFileParser::loadCommands(std::vector<Command*>& list) const
{
    MfrDate fileMfrDate;
    unsigned int position = 0;
    while (position < m_hexData.size()) {
        const unsigned int length = parseHex(m_hexData, position, DIGITS_PER_BYTE);
        const unsigned int code = parseHex(m_hexData, position + DIGITS_PER_BYTE, DIGITS_PER_BYTE);
        position += ENTRY_HEAD_DIGITS;
        std::uint8_t bytes[BlockCommand::MAX_DATA_SIZE] = {};
        for (unsigned int i = 0; i < length; ++i) {
            bytes[i] = static_cast<std::uint8_t>(parseHex(m_hexData, position, DIGITS_PER_BYTE));
            position += DIGITS_PER_BYTE;
        }

        Command* command = Command::create(code);
        if (command == nullptr) {
            LOG(ERROR, "Unknown command: %02x", code);
            continue;
        }
        LOG(DEBUG2, "%s", command->toString().c_str());
        command->setData(bytes);
        list.push_back(command);
        if (code == MfrDate::CODE) {
            fileMfrDate = static_cast<const MfrDate&>(*command);
        }
    }
    return fileMfrDate;
}

// Refuses the file unless each entry is whole, and long enough for its command.
void PowerFileParser::checkEntries()
{
    const auto size = static_cast<unsigned int>(m_hexData.size());
    unsigned int next = 0;
    for (unsigned int position = 0; position < size; position = next) {
        const unsigned int length = parseHex(m_hexData, position, DIGITS_PER_BYTE);
        const unsigned int code = parseHex(m_hexData, position + DIGITS_PER_BYTE, DIGITS_PER_BYTE);
        next = position + ENTRY_HEAD_DIGITS + DIGITS_PER_BYTE * length;
        const catalogue::Row* const row = catalogue::find(code);
        const unsigned int needed = row == nullptr ? 0 : row->size;

        char reason[96];
        if (size - position < ENTRY_HEAD_DIGITS) {
            std::snprintf(reason, sizeof(reason),
                          "the entry at byte %u is cut off behind its length",
                          position / DIGITS_PER_BYTE);
        } else if (next > size) {
            std::snprintf(reason, sizeof(reason),
                          "the entry at byte %u (command %02x) runs past the end of the data",
                          position / DIGITS_PER_BYTE, code);
        } else if (length < needed) {
            std::snprintf(reason, sizeof(reason),
                          "the entry at byte %u (command %02x) has %u data bytes of %u",
                          position / DIGITS_PER_BYTE, code, length, needed);
        } else {
            continue;
        }
        refuse(reason);
        return;
    }
}

void PowerFileParser::refuse(const std::string& reason)
{
    m_hexData.clear();
    m_error = reason;
}
