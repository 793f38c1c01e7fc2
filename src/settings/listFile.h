// The file that a list makes. A list is the readable form of a PM data file: sections for channels,
// sensors and the device, in them a register a line; templates, which sections take over; and
// voltages in per cent of the nominal one. make uses it, and whoever takes a file takes a list,
// too.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "pages.h"
#include "pmFile.h"

/// What is wrong with a list or with what it makes, by the lines of the list.
using ListComplaints = std::multimap<unsigned int, std::string>;

struct ListFile {
    ListComplaints mistakes; ///< of the list, with corrections
    std::string trouble;     ///< why it makes no file, apart from mistakes; with the list's name
    /// What was understood, each entry with its line of the list. Null if there is nothing, or too
    /// much.
    std::unique_ptr<PmFile> file;
    Names names; ///< of channels and sensors, from the section lines
};

/// Reads a list. `needsSection`: whether every register needs a section line above it.
ListFile readList(const std::string& path, std::string_view text, bool needsSection = true);
