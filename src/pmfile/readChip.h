// Reads the settings that a chip holds into a PM data file, so that they can be restored.
#pragma once

#include <optional>
#include <string>

struct ReadOptions {
    std::optional<std::string> like; ///< path of a file; only its settings are read, otherwise all
    std::string output = "-";        ///< path of the file to make
    bool identity = true;            ///< with MFR_LOCATION and MFR_SERIAL
    bool force = false;              ///< replaces an existing file
    int bus = 0;                     ///< N of /dev/i2c-N
};

/// Takes the lock, reads, releases it, then writes the file. Returns an exit status; unless it is
/// STATUS_GOOD there is no file.
int readChip(const ReadOptions& options);
