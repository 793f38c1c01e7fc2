// Who uses a board: each launcher while it runs, so that no one removes the board meanwhile. Used
// by the launcher.
#pragma once

#include <string>

namespace virtualboard {

/// Opens the board's file, which is made if it isn't there, and says that it is in use until the
/// result is closed, which the end of the process does. Returns the descriptor, or -1 with the
/// reason in `error`.
int useBoard(const std::string& path, std::string& error);

/// Removes the board's semaphore and its file. False, with the reason in `error`, if it can't, and
/// while the board is in use or its lock is taken.
bool removeBoard(const std::string& path, std::string& error);

} // namespace virtualboard
