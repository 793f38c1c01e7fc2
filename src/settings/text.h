// What is done with text, whatever it says: blanks, formats, characters. Used all over pmfile.
#pragma once

#include <string>
#include <string_view>

/// What may stand around the words of a line; its end may have a carriage return.
inline constexpr std::string_view BLANKS = " \t\r";

/// The text without blanks at its begin and end.
std::string_view trimmed(std::string_view text);

/// A text made as printf makes it. The compiler checks the arguments against the format.
__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...);

/// The text with \xNN in place of each byte of control characters, of marks that turn the direction
/// of writing, and of what is no UTF-8: what comes from a file or its name is shown in one line,
/// and does nothing to a terminal.
std::string printable(std::string_view text);

/// The text as JSON has it, in quotes, the same characters as escapes; U+FFFD stands for what is no
/// UTF-8.
std::string jsonString(std::string_view text);
