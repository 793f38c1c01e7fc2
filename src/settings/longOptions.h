// What is wrong with the options of a program that has long ones alone. Used by pmstatus and
// pmupgrade.
#pragma once

#include <climits>
#include <string>

struct option;

/// The `val` of the first long option; the others count on from it. No letter is as large.
inline constexpr int FIRST_LONG_OPTION = UCHAR_MAX + 1;

/// What is wrong with what getopt_long returned, for options in the order of their `val`, with ':'
/// as the only letter: `argument` is the last that it took. Empty if it is an option.
std::string refusedOption(const option* options, int given, const std::string& argument);
