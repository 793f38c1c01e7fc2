// Reads a PM data file: Intel HEX records whose data is a sequence of PMBus
// commands. main fills the handler's command lists with it.
#pragma once

#include <string>
#include <vector>

#include "command.h"

/// A file that is not well formed is refused whole: it yields no data and no
/// command, and getError() tells why.
class PowerFileParser {
public:
    /// Reads the file and checks its records and entries. Returns a copy of the
    /// collected data: two hexadecimal digits a byte; empty for a file that can't
    /// be read, that holds no record, or that is broken.
    std::string parseFile(const std::string& fileName);

    /// Returns the data field of one record line; empty if the line is no record.
    std::string parseLine(const std::string& line) const;

    /// Returns the number that stands in hexadecimal in `text`. White space before
    /// it is skipped; it ends at the first other character, after `length`
    /// characters, or with the text. 0 if there are no digits: a sign or "0x" is
    /// none. Only the last eight digits count.
    unsigned int parseHex(const std::string& text, unsigned int position,
                          unsigned int length) const;

    /// Appends a new command for each entry of the file whose code is known; they
    /// belong to the owner of `list`. Returns the file's version record, all zero
    /// if it has none.
    MfrDate loadCommands(std::vector<Command*>& list) const;

    /// Why the last file was refused; empty if it was not.
    const std::string& getError() const { return m_error; }

protected:
    std::string m_hexData; ///< data fields of all records, joined

private:
    void checkEntries();
    void refuse(const std::string& reason);

    std::string m_error;
};
