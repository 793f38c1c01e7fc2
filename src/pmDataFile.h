// The format of PM data files: Intel HEX records, one per line, whose data fields, joined in the
// order of the lines, are a stream of command entries. pmadmin and pmfile read files with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace pmDataFile {

/// The result of reading a file.
enum class Reading : std::uint8_t { WHOLE, FAILED, TOO_LARGE };

/// Appends everything that can be read from the descriptor to `text`. FAILED, with errno set, if an
/// error ends it, TOO_LARGE if there is more than a PM data file can have.
Reading readAll(int fd, std::string& text);

/// Digits per byte, and the bytes with which an entry begins: data length and command code.
inline constexpr std::size_t DIGITS_PER_BYTE = 2;
inline constexpr std::size_t ENTRY_HEAD_BYTES = 2;

/// The hexadecimal number in `text`, in up to `length` characters from `position` on. Leading white
/// space is skipped; the number ends at the first other character or at the end of the text. 0 if
/// there are no digits; a sign or "0x" does not count. A number that is too large becomes the
/// largest.
unsigned int parseHex(std::string_view text, std::size_t position, std::size_t length);

/// The fields of a record line. Fields beyond its end are shorter, or 0.
struct Record {
    unsigned int byteCount, address, type, checksum;
    std::string_view data; ///< part of the line, two digits per byte
    const char* fault;     ///< why the line is not a whole record; null if it is
};
Record parseRecord(std::string_view line);

/// Record types of Intel HEX; pmadmin uses the data of every type.
inline constexpr unsigned int DATA_RECORD = 0;
inline constexpr unsigned int END_RECORD = 1;

/// The right checksum for the fields before it: the bytes of a record sum to 0 modulo 256.
unsigned int checksumOf(std::string_view line);

/// The lines of a file with these data bytes, at most the 65,536 that 16-bit addresses reach.
std::string makeRecords(const std::uint8_t* bytes, std::size_t count);

/// Walks over the lines of a file.
class Lines {
public:
    explicit Lines(std::string_view text) : m_rest(text) {}

    /// Goes to the next line, the first call to the first; false if there is none.
    bool next();

    /// Whether the line counts as a record; lines of up to ten characters don't.
    bool isRecord() const;
    std::string_view line() const { return m_line; }
    /// Counted from 1.
    unsigned int number() const { return m_number; }

private:
    std::string_view m_rest;
    std::string_view m_line;
    unsigned int m_number = 0;
};

/// The number of the line that contains the byte at `offset` of a file's joined data.
unsigned int findLine(std::string_view text, std::size_t offset);

/// Why an entry is not a whole one of its command; empty if it is. `size` is the number of bytes
/// from its first to the end of the data.
std::string findEntryFault(std::size_t size, unsigned int length, unsigned int code);

/// Walks over the entries of joined data, two characters per byte, each as parseHex reads it; bytes
/// beyond the end are 0.
class Entries {
public:
    /// Data bytes of the longest entry, whose count is a byte.
    static constexpr std::size_t MAX_LENGTH = 255;

    explicit Entries(std::string_view digits) : m_digits(digits) {}

    /// Goes to the next entry, the first call to the first; false if there is none.
    bool next();

    /// Offset of the entry's first byte in the data.
    std::size_t offset() const;
    /// Number of data bytes that the entry states, including those beyond the end of the data.
    unsigned int length() const { return m_length; }
    /// PMBus command code.
    unsigned int code() const { return m_code; }
    /// Copies the data bytes to the beginning of `bytes` and fills the rest with zeros.
    void copyData(std::uint8_t (&bytes)[MAX_LENGTH]) const;

    /// The result of findEntryFault for this entry.
    std::string findFault() const;

private:
    std::string_view m_digits;
    std::size_t m_position = 0; ///< of the entry, in digits
    std::size_t m_next = 0;     ///< of what follows it
    unsigned int m_length = 0;
    unsigned int m_code = 0;
};

} // namespace pmDataFile
