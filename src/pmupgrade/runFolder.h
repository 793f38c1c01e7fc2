// Where runs are kept: a numbered folder for each, with copies, backup and report. What must
// outlive a power failure is synced.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// Makes the folder unless it is there. Returns its absolute path, or nothing, with the reason in
/// `error`, if it can't be used.
std::optional<std::string> openKeep(const std::string& folder, std::string& error);

/// Makes the folder of the next run, such as "0007-2026-11-25"; the number tells the order, as the
/// clock may be wrong. Returns its name, with the time in `date`, or nothing, with the reason.
std::optional<std::string> makeRunFolder(const std::string& keep, std::string& date,
                                         std::string& error);

/// The names of the runs, the last first.
std::vector<std::string> listRuns(const std::string& keep);

/// The number with which the name of a run's folder begins; 0 if it is none.
unsigned int numberOfRun(const std::string& name);

/// The run that is named by its folder or its number.
std::optional<std::string> findRun(const std::string& keep, const std::string& name);

/// Removes the files in the run's folder but those in `kept`, and the folder, if it is empty then.
void clearFolder(const std::string& folder, const std::vector<std::string>& kept);

/// Writes a file whole, syncs it and the folder that it is in. False, with the reason in `error`.
bool writeSynced(const std::string& path, const std::string& text, std::string& error);

/// Syncs a folder. False, with the reason in `error`.
bool syncFolder(const std::string& folder, std::string& error);

/// Removes a file and syncs its folder. False, with the reason in `error`.
bool removeSynced(const std::string& path, std::string& error);
