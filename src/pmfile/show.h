// What a PM data file says: its entries by page, with their values in units. For people, and for
// programs as JSON.
#pragma once

#include <string>

/// Returns an exit status.
int show(const std::string& path, bool asJson);
