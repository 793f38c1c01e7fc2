// PM data files as readable lists, from which they are made: `source` writes the list of a file,
// `make` the file of a list.
#pragma once

#include <string>

#include "check.h"

/// Prints the list. Returns an exit status.
int source(const std::string& path);

/// Makes a file from a list, unless the list has mistakes or the file has findings that are not
/// allowed; all of them are reported. Returns an exit status.
int make(const std::string& listPath, const std::string& outputPath, const Allowed& allowed);
