// The launcher's command line. Used by the launcher.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "inputOptions.h"
#include "session.h"

namespace virtualboard {

/// The options from the command line.
struct Options {
    std::string board = "virtual-board.state";
    bool remove = false;
    bool powerCycle = false;
    bool summary = false;
    bool setHardwareVersion = false;
    std::optional<int> hardwareVersion; ///< empty: none
    std::optional<int> model;
    std::vector<InputOption> inputs; ///< what --supply and --sensor say, in their order
    std::optional<std::string> log;
    std::optional<std::string> busLog;
    std::vector<std::string> rules; ///< of the session's faults
    Session session;

    /// Whether there is something to do without a command.
    bool changesBoard() const
    {
        return powerCycle || setHardwareVersion || model || !inputs.empty();
    }
};

/// Parses the options; afterwards optind is at the command. Errors, --help and --version end the
/// launcher.
Options parseOptions(int argc, char** argv);

/// Ends the launcher with a message and the status of an invalid option or board.
[[noreturn]] void giveUp(const std::string& reason);

} // namespace virtualboard
