// What two PM data files set differently, and where they write the same in another order that
// counts.
#pragma once

#include <string>

/// Prints the differences; of settings alone, what is passed over is told. Returns an exit status:
/// STATUS_DIFFERENT if there are any.
int diff(const std::string& oldPath, const std::string& newPath, bool settingsAlone);
