// The format of PM data files: Intel HEX records, a line each, whose data fields, joined in the
// order of the lines, are a stream of command entries. pmadmin and pmfile read files with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace pmDataFile {

/// How the reading of a file went.
enum class Reading : std::uint8_t { WHOLE, FAILED, TOO_LARGE };

/// Appends all that can be read from the descriptor to `text`. FAILED, with errno set, if an error
/// ends it, TOO_LARGE if it is larger than any PM data file.
Reading readAll(int fd, std::string& text);

/// Digits of a byte, and the bytes with which an entry begins: data length and command code.
inline constexpr std::size_t DIGITS_PER_BYTE = 2;
inline constexpr std::size_t ENTRY_HEAD_BYTES = 2;

/// The number that stands in hexadecimal in `text`, in up to `length` characters from `position`
/// on. White space before it is skipped; it ends at the first other character or with the text. 0
/// if there are no digits: a sign or "0x" is none. What is too large is the largest number.
unsigned int parseHex(std::string_view text, std::size_t position, std::size_t length);

/// The fields of a record line. Where the line ends first they are shorter, or 0.
struct Record {
    unsigned int byteCount, address, type, checksum;
    std::string_view data; ///< of the line: two digits a byte
    const char* fault; ///< what keeps the line from being a whole record, in words; null: nothing
};
Record parseRecord(std::string_view line);

/// Of Intel HEX; pmadmin takes the data of every type.
inline constexpr unsigned int DATA_RECORD = 0;
inline constexpr unsigned int END_RECORD = 1;

/// The checksum that fits the fields before it: all bytes of a record sum up to 0 modulo 256.
unsigned int checksumOf(std::string_view line);

/// The lines of a file with these data bytes, of which 16-bit addresses reach 65,536 at most.
std::string makeRecords(const std::uint8_t* bytes, std::size_t count);

/// Walks over the lines of a file.
class Lines {
public:
    explicit Lines(std::string_view text) : m_rest(text) {}

    /// Goes to the next line, at first to the first; false if there is none.
    bool next();

    /// Whether it counts as a record: others, of up to ten characters, are blank or stray.
    bool isRecord() const;
    std::string_view line() const { return m_line; }
    /// Counted from 1.
    unsigned int number() const { return m_number; }

private:
    std::string_view m_rest;
    std::string_view m_line;
    unsigned int m_number = 0;
};

/// The number of the line in which the byte at `offset` of a file's joined data stands.
unsigned int findLine(std::string_view text, std::size_t offset);

/// What keeps an entry from being a whole one of its command, in words; empty if nothing does.
/// `size` is the number of bytes from its first to the end of the data.
std::string findEntryFault(std::size_t size, unsigned int length, unsigned int code);

/// Walks over the entries of joined data, two characters a byte: each is what parseHex finds in
/// them, 0 beyond the end.
class Entries {
public:
    /// Data bytes of the longest entry: their count is a byte.
    static constexpr std::size_t MAX_LENGTH = 255;

    explicit Entries(std::string_view digits) : m_digits(digits) {}

    /// Goes to the next entry, at first to the first; false if there is none.
    bool next();

    /// Of the entry's first byte in the data.
    std::size_t offset() const;
    /// Number of data bytes, as the entry says; those beyond the end of the stream are counted too.
    unsigned int length() const { return m_length; }
    /// PMBus command code.
    unsigned int code() const { return m_code; }
    /// Copies the data bytes to the begin of `bytes` and fills it with zeros.
    void copyData(std::uint8_t (&bytes)[MAX_LENGTH]) const;

    /// As findEntryFault says.
    std::string findFault() const;

private:
    std::string_view m_digits;
    std::size_t m_position = 0; ///< of the entry, in digits
    std::size_t m_next = 0;     ///< of what follows it
    unsigned int m_length = 0;
    unsigned int m_code = 0;
};

} // namespace pmDataFile
