#include "pmDataFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <limits>

#include "commandCatalogue.h"

namespace pmDataFile {

namespace {

// Positions and widths of the fields in an Intel HEX record, in characters.
constexpr std::size_t COUNT_POSITION = 1;
constexpr std::size_t COUNT_WIDTH = 2;
constexpr std::size_t ADDRESS_POSITION = 3;
constexpr std::size_t ADDRESS_WIDTH = 4;
constexpr std::size_t TYPE_POSITION = 7;
constexpr std::size_t TYPE_WIDTH = 2;
constexpr std::size_t DATA_POSITION = 9;
constexpr std::size_t CHECKSUM_WIDTH = 2;

/// Lines up to this length can't be records: a record has 11 characters or more.
constexpr std::size_t MAX_SKIPPED_LENGTH = 10;

constexpr std::size_t ENTRY_HEAD_DIGITS = ENTRY_HEAD_BYTES * DIGITS_PER_BYTE;

/// A real file has some 5 KB. 16-bit addresses reach 65,536 data bytes, which take 983,053 bytes of
/// text in records of one byte with two characters at the ends of lines. What is larger, or has no
/// end, such as a device, is stopped before it fills a board's memory.
constexpr std::size_t MAX_FILE_SIZE = std::size_t{1024} * 1024;

/// The value of each character as a hexadecimal digit, or -1. Large files spend most of their time
/// here, and with a table no branch depends on the digit.
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

int digitValue(char c)
{
    return DIGIT_VALUES[static_cast<std::uint8_t>(c)];
}

bool isDigit(char c)
{
    return digitValue(c) >= 0;
}

/// White space as the C locale knows it.
bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace

Reading readAll(int fd, std::string& text)
{
    struct stat status = {};
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        text.reserve(std::min(static_cast<std::size_t>(status.st_size), MAX_FILE_SIZE));
    }
    char chunk[16 * 1024];
    while (text.size() <= MAX_FILE_SIZE) {
        const ssize_t count = read(fd, chunk, sizeof(chunk));
        if (count == 0) {
            return Reading::WHOLE;
        }
        if (count > 0) {
            text.append(chunk, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return Reading::FAILED;
        }
    }
    return Reading::TOO_LARGE;
}

unsigned int parseHex(std::string_view text, std::size_t position, std::size_t length)
{
    constexpr unsigned int LARGEST = std::numeric_limits<unsigned int>::max();
    const std::size_t begin = std::min(position, text.size());
    const std::size_t end = begin + std::min(length, text.size() - begin);
    std::size_t at = begin;
    while (at < end && isSpace(text[at])) {
        ++at;
    }
    unsigned int value = 0;
    for (; at < end && isDigit(text[at]); ++at) {
        const auto digit = static_cast<unsigned int>(digitValue(text[at]));
        value = value > LARGEST / 16 ? LARGEST : 16 * value + digit;
    }
    return value;
}

Record parseRecord(std::string_view line)
{
    Record record{};
    record.byteCount = parseHex(line, COUNT_POSITION, COUNT_WIDTH);
    record.address = parseHex(line, ADDRESS_POSITION, ADDRESS_WIDTH);
    record.type = parseHex(line, TYPE_POSITION, TYPE_WIDTH);
    const std::size_t dataEnd = DATA_POSITION + DIGITS_PER_BYTE * record.byteCount;
    record.checksum = parseHex(line, dataEnd, CHECKSUM_WIDTH);

    const std::string_view fields = line.substr(0, dataEnd + CHECKSUM_WIDTH);
    record.data = fields.substr(std::min(DATA_POSITION, fields.size()), dataEnd - DATA_POSITION);
    if (!std::all_of(fields.begin() + !fields.empty(), fields.end(), isDigit)) {
        record.fault = "holds something other than hexadecimal digits";
    } else if (line.size() < dataEnd + CHECKSUM_WIDTH) {
        record.fault = "ends before its checksum";
    }
    return record;
}

unsigned int checksumOf(std::string_view line)
{
    const std::size_t digits = DIGITS_PER_BYTE * parseHex(line, COUNT_POSITION, COUNT_WIDTH);
    unsigned int sum = 0;
    for (std::size_t at = COUNT_POSITION; at < DATA_POSITION + digits; at += DIGITS_PER_BYTE) {
        sum += parseHex(line, at, DIGITS_PER_BYTE);
    }
    return -sum & 0xFF;
}

std::string makeRecords(const std::uint8_t* bytes, std::size_t count)
{
    constexpr std::size_t BYTES_PER_RECORD = 16; // the usual number
    const auto addHex = [](std::string& text, const char* format, std::size_t number) {
        char digits[16]; // room for any number
        std::snprintf(digits, sizeof(digits), format, static_cast<unsigned int>(number));
        text += digits;
    };
    std::string text;
    for (std::size_t address = 0; address < count; address += BYTES_PER_RECORD) {
        const std::size_t size = std::min(count - address, BYTES_PER_RECORD);
        std::string line = ":";
        addHex(line, "%02X", size);
        addHex(line, "%04X", address);
        addHex(line, "%02X", DATA_RECORD);
        for (std::size_t i = 0; i < size; ++i) {
            addHex(line, "%02X", bytes[address + i]);
        }
        addHex(line, "%02X\n", checksumOf(line));
        text += line;
    }
    return text + ":00000001FF\n";
}

bool Lines::next()
{
    if (m_rest.empty()) {
        return false;
    }
    const std::size_t end = std::min(m_rest.find('\n'), m_rest.size());
    m_line = m_rest.substr(0, end);
    m_rest.remove_prefix(std::min(end + 1, m_rest.size()));
    ++m_number;
    return true;
}

bool Lines::isRecord() const
{
    return m_line.size() > MAX_SKIPPED_LENGTH;
}

unsigned int findLine(std::string_view text, std::size_t offset)
{
    Lines lines(text);
    for (std::size_t end = 0; end <= offset && lines.next();) {
        end += lines.isRecord() ? parseRecord(lines.line()).data.size() / DIGITS_PER_BYTE : 0;
    }
    return lines.number();
}

bool Entries::next()
{
    if (m_next >= m_digits.size()) {
        return false;
    }
    m_position = m_next;
    m_length = parseHex(m_digits, m_position, DIGITS_PER_BYTE);
    m_code = parseHex(m_digits, m_position + DIGITS_PER_BYTE, DIGITS_PER_BYTE);
    m_next = m_position + ENTRY_HEAD_DIGITS + DIGITS_PER_BYTE * m_length;
    return true;
}

std::size_t Entries::offset() const
{
    return m_position / DIGITS_PER_BYTE;
}

void Entries::copyData(std::uint8_t (&bytes)[MAX_LENGTH]) const
{
    std::fill(std::begin(bytes), std::end(bytes), std::uint8_t{0});
    std::size_t position = m_position + ENTRY_HEAD_DIGITS;
    for (std::size_t i = 0; i < m_length; ++i) {
        bytes[i] = static_cast<std::uint8_t>(parseHex(m_digits, position, DIGITS_PER_BYTE));
        position += DIGITS_PER_BYTE;
    }
}

std::string Entries::findFault() const
{
    return findEntryFault((m_digits.size() - m_position) / DIGITS_PER_BYTE, m_length, m_code);
}

std::string findEntryFault(std::size_t size, unsigned int length, unsigned int code)
{
    const catalogue::Row* const row = catalogue::find(code);
    const unsigned int needed = row == nullptr ? 0 : row->size;
    char fault[64] = "";
    if (size < ENTRY_HEAD_BYTES) {
        return "is cut off behind its length";
    }
    if (size < ENTRY_HEAD_BYTES + length) {
        std::snprintf(fault, sizeof(fault), "(command %02x) runs past the end of the data", code);
    } else if (length < needed) {
        std::snprintf(fault, sizeof(fault), "(command %02x) has %u data bytes of %u", code, length,
                      needed);
    }
    return fault;
}

} // namespace pmDataFile
