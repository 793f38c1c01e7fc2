// Log lines without the line numbers of their statements, which would make every
// expectation of a test depend on where a statement stands.
#pragma once

#include <string>

/// Turns each "file.cpp:123 (" into "file.cpp (".
inline std::string withoutLineNumbers(std::string text)
{
    for (std::size_t at = 0; (at = text.find(".cpp:", at)) != std::string::npos;) {
        at += sizeof(".cpp") - 1;
        text.erase(at, text.find(' ', at) - at);
    }
    return text;
}
