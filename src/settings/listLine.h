// The lines of a list, the readable form of a PM data file: comments, words, and the sections that
// begin a page and name it. Lists are read with it, and the names of supplies.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "pages.h"

/// The text of a list without the mark with which some editors begin a file.
std::string_view withoutByteOrderMark(std::string_view text);

/// Whether a text is a list: its first line that is neither blank nor a comment is a section or a
/// raw entry. Everything else is a PM data file, though perhaps a damaged one: where a record's
/// colon became a bracket, too.
bool isList(std::string_view text);

/// The word with which the line of an entry in hexadecimal begins.
inline constexpr const char* RAW = "raw";

/// Removes the first word from `text` and returns it. Empty if there is none.
std::string_view takeWord(std::string_view& text);

/// The line without its comment; a # within quotes does not begin one.
std::string_view withoutComment(std::string_view line);

/// The name in a line such as "[template core]", empty if it has none. Nothing if the line is
/// another one.
std::optional<std::string_view> parseTemplate(std::string_view line);

/// What a line such as "[channel 3 CORE_2V5]" begins.
struct Section {
    int page;
    std::string_view name; ///< of what is on the page; often empty
};

/// Reads a section line, which begins with "[". Empty, with what would be right in `error`, if it
/// is none.
std::optional<Section> parseSection(std::string_view line, std::string& error);
