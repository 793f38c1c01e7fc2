// Text files, read whole, and written whole or not at all. Used by all of pmfile's commands, and by
// pmupgrade.
#pragma once

#include <string>
#include <vector>

/// Reads a file, or standard input for "-". False, with the reason in `error`, if
/// it can't be read whole.
bool readText(const std::string& path, std::string& text, std::string& error);

/// What to do with an existing file.
enum class Existing { REPLACE, KEEP };

/// Whether a command may write to `path`: it must not be one of the inputs, nor an existing file
/// that must be kept. Standard output, "-" or by another name, is always allowed. False, with a
/// message, if not.
bool mayWrite(const std::string& path, const std::vector<std::string>& inputs, Existing existing);

/// Writes `text` to the file, whole or not at all, and syncs it; to a device or pipe directly.
/// False, with errno set, if that fails: EEXIST if a file that must be kept is there.
bool writeFile(const std::string& path, const std::string& text, Existing existing);

/// The same, or to standard output. Returns STATUS_GOOD or, with a message, STATUS_TROUBLE.
int writeOutput(const std::string& path, const std::string& text, Existing existing);

/// Reports, after an error, that the output file was not made or is unchanged.
void tellUnwritten(const std::string& path);
