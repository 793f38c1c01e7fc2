// Reads a PM data file: Intel HEX records whose data is a sequence of PMBus commands. main fills
// the handler's command lists with it.
#pragma once

#include <string>
#include <vector>

#include "command.h"

/// Collects the data of a file, and makes commands from it. A malformed file is still collected;
/// call getError() before using its commands.
class PowerFileParser {
public:
    /// Reads the file. Returns a copy of the collected data, two hexadecimal digits per byte. Empty
    /// for a file that can't be read, that has no records or is too large.
    std::string parseFile(const std::string& fileName);

    /// Returns the data field of one record line, shorter if the line ends early.
    std::string parseLine(const std::string& line) const;

    /// Returns the hexadecimal number in `text`, in up to `length` characters from `position` on,
    /// as pmDataFile::parseHex does.
    unsigned int parseHex(const std::string& text, unsigned int position,
                          unsigned int length) const;

    /// Appends a new command for each entry of the file whose code is known; they belong to the
    /// owner of `list`. Returns the file's version record, all zero if it has none.
    MfrDate loadCommands(std::vector<Command*>& list) const;

    /// What is wrong with the last file, and where: the first line that is not a whole record,
    /// else the first entry that is not whole. Empty if the file is well formed.
    const std::string& getError() const { return m_error; }

protected:
    std::string m_hexData; ///< data fields of all records, joined

private:
    void checkEntries(const std::string& text);

    std::string m_error;
};
