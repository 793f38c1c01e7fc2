// What pmfile says, and where it goes: messages, standard output, and files that are written whole
// or not at all. Used by all of its commands.
#pragma once

#include <string>
#include <vector>

/// Exit statuses.
inline constexpr int STATUS_GOOD = 0;
inline constexpr int STATUS_DIFFERENT = 1; ///< and of check, warnings
inline constexpr int STATUS_TROUBLE = 2;

/// What is to become of a file that is there already.
enum class Existing { REPLACE, KEEP };

/// Text in which control characters stand as \xNN: what comes from a file or its name is shown in
/// one line, and does nothing to a terminal.
std::string printable(const std::string& text);

/// Tells trouble on standard error, in one line.
void tell(const std::string& what);
void tell(const std::string& file, unsigned int line, const std::string& what);

/// Appends "file:line: " and the text to standard output.
void print(const std::string& text);

/// Flushes standard output. Returns `status`; with a message STATUS_TROUBLE if something that was
/// printed did not get out.
int finishOutput(int status);

/// Whether `path` may become a file that a command writes: not one of its inputs, nor an existing
/// one that is to be kept. Standard output, "-" or by another name, always may. False, with a
/// message, if not.
bool mayWrite(const std::string& path, const std::vector<std::string>& inputs, Existing existing);

/// Writes `text` to the file, whole or not at all, or to standard output; to a device or pipe
/// directly. Returns STATUS_GOOD or, with a message, STATUS_TROUBLE: also if a file has come to be
/// there that is to be kept.
int writeOutput(const std::string& path, const std::string& text, Existing existing);
