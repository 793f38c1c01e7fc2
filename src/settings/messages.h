// What programs print: results on standard output, errors on standard error.
#pragma once

#include <string>

/// Exit statuses of pmfile.
inline constexpr int STATUS_GOOD = 0;
inline constexpr int STATUS_DIFFERENT = 1; ///< and of check, warnings
inline constexpr int STATUS_TROUBLE = 2;

/// The name with which messages begin; the main function of each program sets it.
extern const char* programName;

/// Prints an error on standard error, in one line; the second form with the file and line that it
/// is about.
void tell(const std::string& what);
void tell(const std::string& file, unsigned int line, const std::string& what);

/// Writes text to standard output as it is.
void print(const std::string& text);

/// Flushes standard output. False, with a message, if some output could not be written.
bool flushOutput();

/// Flushes standard output. Returns `status`, or STATUS_TROUBLE, with a message, if some output
/// could not be written.
int finishOutput(int status);
