// Texts as files: read whole, and written whole or not at all. Used by all of pmfile's commands.
#pragma once

#include <string>
#include <vector>

/// Reads a file, or standard input for "-". False, with a message, if it can't be read whole.
bool readText(const std::string& path, std::string& text);

/// What is to become of a file that is there already.
enum class Existing { REPLACE, KEEP };

/// Whether `path` may become a file that a command writes: not one of its inputs, nor an existing
/// one that is to be kept. Standard output, "-" or by another name, always may. False, with a
/// message, if not.
bool mayWrite(const std::string& path, const std::vector<std::string>& inputs, Existing existing);

/// Writes `text` to the file, whole or not at all, or to standard output; to a device or pipe
/// directly. Returns STATUS_GOOD or, with a message, STATUS_TROUBLE: also if a file has come to be
/// there that is to be kept.
int writeOutput(const std::string& path, const std::string& text, Existing existing);

/// Tells, after trouble, what has become of the file that a command was to write.
void tellUnwritten(const std::string& path);
