// What a run notes about itself: as a note in DIR while it writes, so that whoever comes after a
// power failure knows what to do, and in its own folder, so that it can be taken back later.
#pragma once

#include <string>

#include "facts.h"

struct RunRecord {
    std::string folder; ///< of the run, its name in DIR
    std::string date;   ///< of its begin
    bool isReturn = false;
    std::string file;   ///< SHA-256 of FILE
    std::string backup; ///< SHA-256 of what can be returned to
    std::string fileVersion;
    std::string backupVersion;
    int model = 0;
    Identity chip;         ///< before
    Identity fileIdentity; ///< what the chip bears with FILE
    RailStates states;     ///< of the supplies before
    bool hasStoreBegun = false;
    int status = -1; ///< the run's exit status; -1 while it is under way
};

/// The name of the note in DIR.
inline constexpr const char* NOTE_NAME = "under-way.json";

/// The name of the record in a run's folder.
inline constexpr const char* RECORD_NAME = "run.json";

enum class Found { NOTHING, RECORD, BROKEN };

/// Reads a record. BROKEN, with the reason in `error`, if something is there that can't be read.
Found readRecord(const std::string& path, RunRecord& record, std::string& error);

/// Writes it whole and synced. False, with the reason in `error`, if that fails; then nothing has
/// changed.
bool writeRecord(const std::string& path, const RunRecord& record, std::string& error);
