// The power monitor together with a PM data file: the checks and the transfers between the two.
// main builds one for a run and calls the operations of its action.
#pragma once

#include <cstdint>
#include <vector>

#include "command.h"
#include "max34460.h"

class PowerFileHandler : public Max34460 {
public:
    /// Opens and identifies the chip, then waits once until no one else holds the lock, which also
    /// frees a stale lock.
    PowerFileHandler();
    ~PowerFileHandler() override;

    /// The commands of the file, in file order. Both lists are to be filled from the same file with
    /// objects of their own, which the handler then owns.
    std::vector<Command*>& getFileCommands() { return m_fileCommands; }
    /// The commands into which the chip's values are read.
    std::vector<Command*>& getTargetCommands() { return m_targetCommands; }
    /// Takes a copy of the file's version record.
    void setFileMfrDate(const MfrDate& mfrDate) { m_fileMfrDate = mfrDate; }

    /// Deletes the commands of `list` and empties it.
    void clear(std::vector<Command*>& list);

    /// Prints the version of the installed power settings; always true.
    bool printInstalledVersion();

    /// Whether the chip answered when the handler was built.
    bool isAccessible();

    /// Whether the board's hardware version is at least the minimum of the file.
    bool compareHwVersions();

    /// Whether the file's version is the installed one.
    bool comparePowerFileVersions();

    /// Reads the registers of the file from the chip, each up to twice, and compares them, except
    /// actions and registers that can't be compared. Stops at the first that differs or can't be
    /// read. True if all are equal, false also if the lists are empty.
    bool compare();

    /// Writes the commands of the file, except actions, to the chip's working registers. True if
    /// all writes succeeded; after a failed one the others are still made.
    bool writeCommands();

    /// Makes the chip store its working registers in its flash. False if it does not accept the
    /// command.
    bool save();

    /// Whether the command is an action, not a setting.
    bool isSkippedCommand(const Command* command) const;
    /// Whether the command is compared on this model of the chip.
    bool isComparable(const Command* command) const;

protected:
    std::vector<Command*> m_fileCommands;
    std::vector<Command*> m_targetCommands;
    MfrDate m_fileMfrDate;

private:
    bool compareCommands();
    bool compareCommand(Command& target, const Command& file, int index, std::uint8_t page);
};
