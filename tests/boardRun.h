// Runs programs on a virtual board of the test's own. Used by the tests of whole
// runs, of faults, and of the virtual board itself.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "chip.h"

/// What a run did.
struct Outcome {
    int status;
    std::string output;
    std::string errors;
    std::string log; ///< syslog messages, without the line numbers of their statements
    std::string bus; ///< one line a transfer
};

class BoardRun : public testing::Test {
protected:
    BoardRun();
    ~BoardRun() override;

    /// Runs a shell command line on the board, with sleeps skipped. $PMADMIN stands
    /// for the tool, $EXAMPLES for the folder of the example files.
    Outcome run(const std::string& command, const std::string& boardOptions = "") const;

    /// A file of the test's own folder.
    std::string path(const std::string& name) const { return m_folder + "/" + name; }
    std::string write(const std::string& name, const std::string& content) const;

    /// The chip's memory.
    virtualboard::Memory memory() const;
    void setMemory(const virtualboard::Memory& memory) const;

    /// The set of the board's lock; -1 if there is none.
    int lockSet() const;

private:
    std::string m_folder;
};

std::string readFile(const std::string& path);
