// Which registers two PM data files set differently.
#pragma once

#include <string>

/// Prints the differences. Returns an exit status: STATUS_DIFFERENT if there are any.
int diff(const std::string& oldPath, const std::string& newPath);
