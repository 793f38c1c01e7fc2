// The command line of pmupgrade.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// Where runs are kept if nothing else is said.
inline constexpr const char* DEFAULT_KEEP = "/var/lib/pmupgrade";

struct UpgradeOptions {
    bool help = false;
    bool version = false;
    bool isReturn = false;
    bool isDryRun = false;
    bool isAnyway = false; ///< go on in spite of faults that there are before
    bool hasNoReturn = false;
    std::string keep = DEFAULT_KEEP;
    std::vector<std::string> allowed; ///< problems of `pmfile check`
    std::string file;                 ///< empty for a return
    std::optional<std::string> run;   ///< of a return
};

extern const char* const HELP;

/// Takes the options. Returns what is wrong with them, in words; empty if nothing is.
std::string takeOptions(int argc, char** argv, UpgradeOptions& options);
