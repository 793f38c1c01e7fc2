// The session: what all processes under one run of the launcher share, options,
// fault rules, counters and the virtual clock, in a temporary file mapped by
// each of them. Whoever holds the board may change it. Made by the launcher (or
// by a test, as a plain object), used by the bus and the shim.
#pragma once

#include <climits>
#include <cstdint>
#include <string>
#include <type_traits>

#include "faults.h"

namespace virtualboard {

/// Environment: the path of the session's file. Unset: the shim answers nothing.
inline constexpr const char* SESSION_VARIABLE = "VIRTUAL_BOARD_SESSION";

inline constexpr int MAX_FAULTS = 64;

struct Session {
    char board[PATH_MAX] = "";  ///< the board's memory file, absolute
    char log[PATH_MAX] = "";    ///< for syslog messages; empty: the system's; "-": stderr
    char busLog[PATH_MAX] = ""; ///< one line a transfer; empty: none; "-": stderr
    bool showPid = false;       ///< lines of both logs begin with the process id
    bool setTraceLevel = false;
    int traceLevel = 0;
    double timeScale = 1;

    int faultCount = 0;
    Fault faults[MAX_FAULTS];

    std::uint64_t transfers = 0;
    std::uint64_t failures = 0;
    std::uint64_t bytes = 0;       ///< on the wire, addresses included
    std::uint64_t bits = 0;        ///< on the wire, a bit time each
    std::uint64_t clock = 0;       ///< virtual microseconds: full sleeps and transfers
    std::uint64_t silentUntil = 0; ///< on that clock
};
static_assert(std::is_trivially_copyable_v<Session>);

/// Counts a strike of the first matching rule and returns it, or null.
Fault* strikingFault(Session& session, FaultKind kind, int code = ANY, int page = ANY);

/// Puts the session into a temporary file and maps it; null with the reason in
/// `error`. The caller removes the file `path` in the end.
Session* shareSession(const Session& session, std::string& path, std::string& error);

/// The session that the environment names, or null if it names none. Ends the
/// process with a message if it can't be had: going on would reach real buses.
Session* joinSession();

/// Appends one line to a log in a single write, the newline is added here.
/// `log` is one of the session's two. Says once on stderr if that fails.
void appendLine(const Session& session, const char* log, const std::string& line);

} // namespace virtualboard
