// Runs a command with the shim preloaded. Used by the launcher.
#pragma once

#include <string>

namespace virtualboard {

/// Finds the folder with the shim and the stand-ins for the board's libraries. False, with the
/// reason in `error`, if they are not in their place.
bool findLibraries(std::string& folder, std::string& error);

/// The dynamic loader splits its lists of libraries at spaces and colons. If the folder's path has
/// one, names in its place a link in the session's folder. False, with the reason in `error`, if
/// that doesn't help: the command would run without the shim and reach a real bus.
bool makeLoadable(std::string& libraries, const std::string& sessionFolder, std::string& error);

/// Runs the command with the libraries of this folder and returns its status as shells do.
int runCommand(char** command, const std::string& libraries, const char* sessionFolder);

} // namespace virtualboard
