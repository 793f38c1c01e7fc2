// Runs programs on a virtual board of the test's own. Used by the tests of whole runs, of faults, and of the virtual
// board itself.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "chip.h"

/// Whether a run takes ten times as long as usual: under a sanitizer or an emulator.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool SLOW = true;
#else
inline constexpr bool SLOW = EMULATOR[0] != '\0';
#endif

/// What a run did.
struct Outcome {
    int status;
    std::string output;
    std::string errors;
    std::string log; ///< syslog messages, without the line numbers of their statements
    std::string bus; ///< one line per transfer
};

class BoardRun : public testing::Test {
protected:
    BoardRun();
    ~BoardRun() override;

    /// Runs a shell command line on the board, with sleeps skipped. $PMADMIN, $PMFILE, $PMSTATUS, $PMUPGRADE
    /// and $BUS_USER stand for the programs, which PATH leads to as well, $VIRTUAL_BOARD for another launcher on it, $EXAMPLES for the folder of the example
    /// files; `build` is the build's.
    Outcome run(const std::string& command, const std::string& boardOptions = "") const;

    /// A file in the test's own folder.
    std::string path(const std::string& name) const { return m_folder + "/" + name; }
    std::string write(const std::string& name, const std::string& content) const;

    /// The chip's memory.
    virtualboard::Memory memory() const;
    void setMemory(const virtualboard::Memory& memory) const;

    /// The value of the board's lock: 1 free, 0 taken, -1 if no one has used it yet.
    int lockValue() const;
    int lockSet() const;

private:
    std::string m_folder;
};

std::string readFile(const std::string& path);

/// The memory without what every run changes: the selected page and the status.
virtualboard::Memory settings(virtualboard::Memory memory);
