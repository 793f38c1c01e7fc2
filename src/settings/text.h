// Handling of text: blanks, formats, characters. Used by every program but pmadmin.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The blanks around the words of a line, including a carriage return at its end.
inline constexpr std::string_view BLANKS = " \t\r";

/// The text without blanks at its beginning and end.
std::string_view trimmed(std::string_view text);

/// The decimal number that is all of `text`, from `lowest` to `highest`.
std::optional<unsigned int> takeNumber(std::string_view text, unsigned int lowest,
                                       unsigned int highest);

/// The texts with ", " between them.
std::string joined(const std::vector<std::string>& texts);

/// "1 entry", "3 entries".
std::string counted(std::size_t number, const char* one, const char* several);

/// Formats a text like printf. The compiler checks the arguments against the format.
__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...);

/// The local time, such as 2026-11-25T20:05:00+0000; empty if it can't be had.
std::string timeText();

/// The text with \xNN in place of each byte of control characters, of marks that turn the direction
/// of writing, and of what is no UTF-8: what comes from a file or its name is shown in one line,
/// and does nothing to a terminal.
std::string printable(std::string_view text);

/// The text as JSON has it, in quotes, the same characters as escapes; U+FFFD stands for what is no
/// UTF-8.
std::string jsonString(std::string_view text);
