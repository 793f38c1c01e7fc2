// What is done with text, whatever it says: blanks, formats, characters. Used all over pmfile.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// What may stand around the words of a line; its end may have a carriage return.
inline constexpr std::string_view BLANKS = " \t\r";

/// The text without blanks at its begin and end.
std::string_view trimmed(std::string_view text);

/// A text made as printf makes it. The compiler checks the arguments against the format.
__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...);

/// The character with which a UTF-8 text begins. Its length in bytes is 0 if the text is empty or
/// begins with something else.
struct Character {
    std::size_t length;
    char32_t code;
};
Character firstCharacter(std::string_view text);

/// Whether the character is not seen, but changes how others are: a control character, or a mark
/// that turns the direction of writing.
bool isControl(char32_t code);

/// The text with \xNN in place of each byte of control characters and of what is no UTF-8: what
/// comes from a file or its name is shown in one line, and does nothing to a terminal.
std::string printable(std::string_view text);

/// The text as JSON has it, in quotes, control characters as escapes; U+FFFD stands for what is no
/// UTF-8.
std::string jsonString(std::string_view text);
