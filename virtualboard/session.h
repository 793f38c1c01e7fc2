// The session: what all processes under one run of the launcher share (options, fault rules,
// counters and the virtual clock), in a temporary folder of its own. Made by the launcher or a
// test, used by the bus and the shim.
#pragma once

#include <sys/types.h>

#include <climits>
#include <cstdint>
#include <string>
#include <type_traits>

#include "faults.h"
#include "fileLock.h"

namespace virtualboard {

/// Environment: the path of the session's folder. Unset: the shim answers nothing.
inline constexpr const char* SESSION_VARIABLE = "VIRTUAL_BOARD_SESSION";

/// Each open bus has a file in the folder, whose offset is this often the address that it is bound
/// to. What is written to the bus without a request is the file's content, from there on.
inline constexpr const char* BUS_FILE_PREFIX = "bus.";
inline constexpr std::int64_t BUS_FILE_STRIDE = 1 << 20;

inline constexpr int MAX_FAULTS = 64;

/// Mapped by each process from a file in the folder. Take a turn before changing it, and before
/// writing lines to a log in an order that follows from it.
struct Session {
    char folder[PATH_MAX] = ""; ///< absolute
    char board[PATH_MAX] = "";  ///< the board's memory file, absolute
    char log[PATH_MAX] = "";    ///< for syslog messages; empty: the system's; "-": stderr
    char busLog[PATH_MAX] = ""; ///< one line per transfer; empty: none; "-": stderr
    pid_t launcher = 0;         ///< whose descendants are the run; 0 in a test
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

/// Holds the session until the result is destroyed.
FileLock takeTurn(const Session& session);

/// Counts a use of the first matching rule and returns the rule, or null.
Fault* strikingFault(Session& session, FaultKind kind, int code = ANY, int page = ANY,
                     int supply = ANY);

/// Puts the session into a folder of its own, which it then names, and maps it; null with the
/// reason in `error`. The caller removes the folder at the end.
Session* shareSession(const Session& session, std::string& error);

/// The session that the environment names, or null if it names none. Ends the process with a
/// message if it can't be used: otherwise real buses could be reached.
Session* joinSession();

/// Appends one line to a log in a single write, the newline is added here. `log` is one of the
/// session's two. Reports a failure once on stderr.
void appendLine(const Session& session, const char* log, const std::string& line);

} // namespace virtualboard
