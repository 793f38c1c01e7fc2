// Shows a PM data file: its entries by page, with their values in units, for people, or as JSON for
// programs.
#pragma once

#include <string>

/// Returns an exit status.
int show(const std::string& path, bool asJson);
