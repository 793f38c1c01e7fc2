// The programs that pmupgrade runs: started as a shell would, what they write is caught.
#pragma once

#include <string>
#include <vector>

/// A program and its arguments.
using Words = std::vector<std::string>;

/// A program that has ended.
struct Ended {
    int status =
        0; ///< as a shell has it: 127 not found, 126 not started, 128 + N killed by signal N
    std::string output;
    std::string errors;
};

/// Runs a program, which is looked for in PATH, without standard input. Signals that are ignored
/// here are ignored there.
Ended runProgram(const Words& command);

/// The command as it can be typed, in bash where a name has control characters.
std::string typed(const Words& command);

/// A word of a command as it can be typed.
std::string quoted(const std::string& word);

/// How a program ended: "ok", "status 1", "killed by signal 9", "was not found in PATH".
std::string endInWords(int status);
