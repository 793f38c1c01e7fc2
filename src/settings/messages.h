// What pmfile says: results on standard output, trouble on standard error. Used by all of its
// commands.
#pragma once

#include <string>

/// Exit statuses.
inline constexpr int STATUS_GOOD = 0;
inline constexpr int STATUS_DIFFERENT = 1; ///< and of check, warnings
inline constexpr int STATUS_TROUBLE = 2;

/// Tells trouble on standard error, in one line; the second form with the file and line that it is
/// about.
void tell(const std::string& what);
void tell(const std::string& file, unsigned int line, const std::string& what);

/// Writes text to standard output as it is.
void print(const std::string& text);

/// Flushes standard output. Returns `status`; with a message STATUS_TROUBLE if something that was
/// printed did not get out.
int finishOutput(int status);
