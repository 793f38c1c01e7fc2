// One run at a time on a board, whatever folder it keeps its files in.
#pragma once

#include <string>

/// The lock of this machine's board. A virtual board has its own in its place.
inline constexpr const char* RUN_LOCK = "/run/lock/pmupgrade";

/// Takes the lock, which ends with the last process of the run: what it starts inherits it, so that
/// nobody begins while a child of a killed run still writes. False, with the reason in `error`.
bool takeRunLock(std::string& error);
