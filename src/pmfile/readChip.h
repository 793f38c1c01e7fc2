// Reads the settings that a chip holds into a PM data file, so that they can be brought back.
#pragma once

#include <optional>
#include <string>

struct ReadOptions {
    std::optional<std::string> like; ///< path of a file, whose settings are read; else all are
    std::string output = "-";        ///< path of the file to make
    bool identity = true;            ///< with MFR_LOCATION and MFR_SERIAL
    bool force = false;              ///< replaces an existing file
};

/// Takes the lock, reads, gives it back, then writes the file. Returns an exit status; without
/// STATUS_GOOD there is no file.
int readChip(const ReadOptions& options);
