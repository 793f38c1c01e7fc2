// PM data files as readable lists, the source from which they are made: `source` writes the list
// that gives a file, `make` the file that a list gives.
#pragma once

#include <string>

#include "check.h"

/// Prints the list. Returns an exit status.
int source(const std::string& path);

/// Makes a file from a list, unless that has mistakes or the file would have complaints that are
/// not allowed; all of them are told. Returns an exit status.
int make(const std::string& listPath, const std::string& outputPath, const Allowed& allowed);
