// The names of supplies and sensors: they stand in the section lines of any list.
#pragma once

#include <string>

#include "pages.h"

/// Reads the names that a list gives. False, with the reason in `error`, if it can't be read or has
/// a section line that is none.
bool readNames(const std::string& path, Names& names, std::string& error);
