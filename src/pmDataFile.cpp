#include "pmDataFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

/// No record is as short.
constexpr std::size_t MAX_SKIPPED_LENGTH = 10;

constexpr std::size_t DIGITS_PER_BYTE = 2;

/// An entry begins with its data length and its command code, a byte each.
constexpr std::size_t ENTRY_HEAD_DIGITS = 2 * DIGITS_PER_BYTE;

/// Far beyond any real file, which has some 5 KB: its commands still fit into a board's memory, and
/// a source without an end, such as a device, is stopped before it fills that.
constexpr std::size_t MAX_FILE_SIZE = std::size_t{16} * 1024 * 1024;

/// The value of a hexadecimal digit, or -1 if `c` is none.
int digitValue(char c)
{
    const char lower = static_cast<char>(c | 0x20);
    return c >= '0' && c <= '9' ? c - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
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

bool RecordLines::next()
{
    while (!m_rest.empty()) {
        const std::size_t end = std::min(m_rest.find('\n'), m_rest.size());
        m_line = m_rest.substr(0, end);
        m_rest.remove_prefix(std::min(end + 1, m_rest.size()));
        ++m_number;
        if (m_line.size() > MAX_SKIPPED_LENGTH) {
            return true;
        }
    }
    return false;
}

unsigned int findLine(std::string_view text, std::size_t offset)
{
    RecordLines lines(text);
    for (std::size_t end = 0; end <= offset && lines.next();) {
        end += parseRecord(lines.line()).data.size() / DIGITS_PER_BYTE;
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
    const catalogue::Row* const row = catalogue::find(m_code);
    const unsigned int needed = row == nullptr ? 0 : row->size;
    char fault[64] = "";
    if (m_digits.size() - m_position < ENTRY_HEAD_DIGITS) {
        return "is cut off behind its length";
    }
    if (m_next > m_digits.size()) {
        std::snprintf(fault, sizeof(fault), "(command %02x) runs past the end of the data", m_code);
    } else if (m_length < needed) {
        std::snprintf(fault, sizeof(fault), "(command %02x) has %u data bytes of %u", m_code,
                      m_length, needed);
    }
    return fault;
}

} // namespace pmDataFile
