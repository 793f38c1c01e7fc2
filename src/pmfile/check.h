// Finds the problems of PM data files. Each kind of complaint has a name, by which the maker of a
// file can allow it. check reports them; make refuses files that have any.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "pmFile.h"

/// Names of complaints that are not reported; "all" is every one.
using Allowed = std::vector<std::string>;

struct Finding {
    unsigned int line;
    bool isError;
    std::string_view name; ///< of the complaint
    std::string text;      ///< what is wrong, where and why

    /// "warning: no MFR_DATE, the version record (no-version)".
    std::string inWords() const;
};

/// All findings in a file, in the order of its lines. A warning is about something that a maker may
/// intend; an error says that the file is damaged or can't work. Unless the file is known to
/// be complete, nothing is said of what it lacks and of how its entries relate.
std::vector<Finding> findComplaints(const PmFile& file, const Allowed& allowed,
                                    bool isComplete = true);

/// Whether a list needs a section line above each register.
bool needsSection(const Allowed& allowed);

/// False, with a message, if a name that was given to the option is not that of a complaint.
bool areComplaints(const std::string& option, const Allowed& names);

/// The names that are allowed without those that are not, whatever else is.
Allowed without(const Allowed& allowed, const Allowed& denied);

/// The command: STATUS_GOOD without findings, STATUS_DIFFERENT if all are warnings.
int check(const std::vector<std::string>& paths, const Allowed& allowed);
