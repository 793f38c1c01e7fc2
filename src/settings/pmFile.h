// A PM data file as pmfile's commands use it: its records and entries, each with its line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "commandCatalogue.h"
#include "pmDataFile.h"

/// Before the first PAGE entry of a file, no page is selected.
inline constexpr int NO_PAGE = -1;

struct RecordLine {
    pmDataFile::Record record;
    std::string_view text;
    unsigned int line;
};

struct Entry {
    const catalogue::Row* row; ///< null: unknown
    std::span<const std::uint8_t> data;
    std::size_t offset; ///< of its first byte in the data
    unsigned int line;  ///< in which it begins
    unsigned int code;
    int index; ///< as pmadmin prints it, counted from 0; -1 if the code is unknown
    int page;  ///< the page it applies to, its own value if it is a PAGE entry; or NO_PAGE
    bool isWhole;

    bool isPage() const { return code == Page::CODE; }
    /// Whether it has the data that its command takes.
    bool isValue() const { return row != nullptr && row->size > 0 && isWhole; }
    /// The data that its command takes, without surplus bytes.
    std::span<const std::uint8_t> value() const { return data.first(row->size); }
};

/// A file's text and what it says. Records and entries refer to the text and the bytes in it, so
/// that it can't be copied.
class PmFile {
public:
    PmFile(std::string fileName, std::string content);
    PmFile(const PmFile&) = delete;
    PmFile& operator=(const PmFile&) = delete;

    /// Why the entry is not whole.
    std::string faultOf(const Entry& entry) const;

    const std::string name;
    const std::string text;
    std::vector<RecordLine> records;
    std::vector<RecordLine> strays; ///< lines too short for a record, but not blank
    std::vector<Entry> entries;
    std::vector<std::uint8_t> bytes; ///< the data of all records

private:
    void findRecords(std::string& digits);
    void findEntries(const std::string& digits);
};

/// False, with a message, if the file has no entry.
bool requireEntries(const PmFile& file);

/// False, with a message, unless pmadmin loads the file and it has an entry.
bool requireLoadable(const PmFile& file);

/// Reads a file that is loadable. Null, with a message, if it is not.
std::unique_ptr<PmFile> loadFile(const std::string& path);

/// Whether the chip has the page.
bool isPage(int page);

/// The page that identifies the register: 255 for those common to the device, for others the
/// entry's own.
int registerPage(const Entry& entry);

/// "channel 3", "sensor 0", "device", "page 12", "before the first page".
std::string pageName(int page);

/// The name of an entry's command; "command 05" if it is unknown.
std::string commandName(const Entry& entry);

/// As in a sentence: "channel 3", "the device".
std::string placeName(int page);

/// "VOUT_OV_WARN_LIMIT of channel 3".
std::string registerName(const Entry& entry);

/// Whether the entry sets its register to the factory value.
bool isFactoryValue(const Entry& entry);

/// Whether the register identifies this one device and differs from chip to chip.
bool isIdentity(const Entry& entry);
