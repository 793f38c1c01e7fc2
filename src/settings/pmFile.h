// A PM data file as pmfile's commands use it: its records and entries, each with its line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "entry.h"
#include "pmDataFile.h"

struct RecordLine {
    pmDataFile::Record record;
    std::string_view text;
    unsigned int line;
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

/// False, with the reason in `error`, if the file has no entry.
bool hasEntries(const PmFile& file, std::string& error);

/// False, with the reason in `error`, unless pmadmin loads the file and it has an entry.
bool isLoadable(const PmFile& file, std::string& error);
