// What the launcher's command line asks for. Used by the launcher.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "session.h"

namespace virtualboard {

/// The options, taken from the command line and not yet acted upon.
struct Options {
    std::string board = "virtual-board.state";
    bool remove = false;
    bool powerCycle = false;
    bool summary = false;
    bool setHardwareVersion = false;
    std::optional<int> hardwareVersion; ///< empty: none
    std::optional<int> model;
    std::optional<std::string> log;
    std::optional<std::string> busLog;
    std::vector<std::string> rules; ///< of the session's faults
    Session session;

    /// Whether there is something to do without a command.
    bool changesBoard() const { return powerCycle || setHardwareVersion || model; }
};

/// Takes the options; optind is at the command then. What is wrong ends the launcher, and so do
/// --help and --version.
Options parseOptions(int argc, char** argv);

/// Ends the launcher with a message and the status of a wrong option or board.
[[noreturn]] void giveUp(const std::string& reason);

} // namespace virtualboard
