// Reading what a program is given as a file: a PM data file, or the list that makes one.
#pragma once

#include <memory>
#include <string>

#include "pmFile.h"

/// Reads a file that is loadable, or makes one of a list, whose names of supplies are known from
/// then on. Null, with the reason in `error`, if that can't be done.
std::unique_ptr<PmFile> loadFile(const std::string& path, std::string& error);

/// The same, with the reason as a message, and every mistake of a list.
std::unique_ptr<PmFile> loadOrTell(const std::string& path);
