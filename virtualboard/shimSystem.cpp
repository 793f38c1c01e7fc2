// The shim's other calls: the system log, sleeps, the lock's key, and what the
// board's two libraries tell.

// The checked forms of syslog are defined here beside the plain ones.
#undef _FORTIFY_SOURCE
#undef _TIME_BITS

#include "shim.h"

#include <sys/sem.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "board.h"
#include "boardUtils.h"
#include "pmMutexLock.h"
#include "session.h"
#include "trace.h"

namespace virtualboard {

namespace {

int fail(int error)
{
    errno = error;
    return -1;
}

constexpr long NS_PER_S = 1000000000;
constexpr unsigned US_PER_S = 1000000;
constexpr double LONGEST_S = 2000000000; // fits a 32-bit time_t; "for ever" is more

// One message, one line: as syslog daemons do, control characters become '#'
// and three octal digits.
std::string logLine(int priority, const std::string& message)
{
    static constexpr const char* PRIORITIES[] = {"emerg",   "alert",  "crit", "err",
                                                 "warning", "notice", "info", "debug"};
    std::string line = std::string(PRIORITIES[LOG_PRI(priority)]) + ": ";
    for (const char character : message) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte != 0x7F) {
            line += character;
            continue;
        }
        char octal[5];
        std::snprintf(octal, sizeof octal, "#%03o", static_cast<unsigned>(byte));
        line += octal;
    }
    return line;
}

// Takes the message if the run keeps its own log; false: the system's is meant.
bool logMessage(int priority, const char* format, va_list arguments)
{
    const Session* session = joinSession();
    if (session == nullptr || session->log[0] == '\0') {
        return false;
    }
    if ((setlogmask(0) & LOG_MASK(LOG_PRI(priority))) == 0) {
        return true;
    }
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) < 0) {
        return true; // no memory: syslog itself says nothing then
    }
    std::string message(text);
    std::free(text);
    if (!message.empty() && message.back() == '\n') {
        message.pop_back();
    }
    appendLine(*session, session->log, logLine(priority, message));
    return true;
}

double toSeconds(const timespec& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / NS_PER_S;
}

timespec toTimespec(double seconds)
{
    seconds = std::min(seconds, LONGEST_S);
    timespec time = {};
    time.tv_sec = static_cast<time_t>(seconds);
    time.tv_nsec = static_cast<long>((seconds - static_cast<double>(time.tv_sec)) * NS_PER_S);
    return time;
}

// Sleeps `seconds` at the session's scale and lets the virtual clock advance by
// the whole of them. Returns 0, or the errno with the unscaled rest in `rest`.
int scaledSleep(Session& session, double seconds, double& rest)
{
    rest = 0;
    int error = 0;
    if (seconds * session.timeScale > 0) {
        const timespec scaled = toTimespec(seconds * session.timeScale);
        static auto* const real = next<int(const timespec*, timespec*)>("nanosleep");
        timespec left = {};
        if (real(&scaled, &left) != 0) {
            error = errno;
            rest = toSeconds(left) / session.timeScale;
        }
    }
    const BoardAccess turn(session.board);
    session.clock += static_cast<std::uint64_t>(std::llround((seconds - rest) * US_PER_S));
    return error;
}

bool isTime(const timespec* time)
{
    return time != nullptr && time->tv_sec >= 0 && time->tv_nsec >= 0 && time->tv_nsec < NS_PER_S;
}

} // namespace

} // namespace virtualboard

using namespace virtualboard;

extern "C" {

INTERPOSED void vsyslog(int priority, const char* format, va_list arguments)
{
    if (!logMessage(priority, format, arguments)) {
        next<void(int, const char*, va_list)>("vsyslog")(priority, format, arguments);
    }
}

INTERPOSED void syslog(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

// What syslog becomes in programs built with FORTIFY_SOURCE.
INTERPOSED void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments)
{
    if (!logMessage(priority, format, arguments)) {
        next<void(int, int, const char*, va_list)>("__vsyslog_chk")(priority, flag, format,
                                                                    arguments);
    }
}

INTERPOSED void __syslog_chk(int priority, int flag, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    __vsyslog_chk(priority, flag, format, arguments);
    va_end(arguments);
}

INTERPOSED int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left)
{
    Session* session = joinSession();
    if (session == nullptr || !isTime(time)) {
        return next<int(clockid_t, int, const timespec*, timespec*)>("clock_nanosleep")(
            clock, flags, time, left);
    }
    double seconds = toSeconds(*time);
    const bool absolute = (flags & TIMER_ABSTIME) != 0;
    if (absolute) {
        timespec now = {};
        if (clock_gettime(clock, &now) != 0) {
            return errno;
        }
        seconds = std::max(0.0, seconds - toSeconds(now));
    }
    double rest = 0;
    const int error = scaledSleep(*session, seconds, rest);
    if (error == EINTR && !absolute && left != nullptr) {
        *left = toTimespec(rest);
    }
    return error;
}

INTERPOSED int nanosleep(const timespec* time, timespec* left)
{
    if (joinSession() == nullptr || !isTime(time)) {
        return next<int(const timespec*, timespec*)>("nanosleep")(time, left);
    }
    const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, time, left);
    return error == 0 ? 0 : fail(error);
}

INTERPOSED unsigned sleep(unsigned seconds)
{
    const timespec time = toTimespec(seconds);
    timespec left = {};
    nanosleep(&time, &left);
    return static_cast<unsigned>(std::lround(toSeconds(left)));
}

INTERPOSED int usleep(useconds_t microseconds)
{
    timespec time = {};
    time.tv_sec = microseconds / US_PER_S;
    time.tv_nsec = static_cast<long>(microseconds % US_PER_S) * (NS_PER_S / US_PER_S);
    return nanosleep(&time, nullptr);
}

// The lock stays the kernel's own; two boards have two.
INTERPOSED int semget(key_t key, int count, int flags) noexcept
{
    Session* session = joinSession();
    if (session != nullptr && key == PM_MUTEX_KEY) {
        const BoardAccess board(session->board);
        if (!board.isOpen()) {
            std::fprintf(stderr, "virtual-board: %s\n", board.error().c_str());
            return fail(EACCES);
        }
        key = board.privateKey(key);
    }
    return next<int(key_t, int, int)>("semget")(key, count, flags);
}

} // extern "C"

// The board's libraries are C++: their symbols follow from the declarations.

INTERPOSED TraceObject::TraceObject(const char* identity, int level) : m_settings(nullptr)
{
    // As the Itanium C++ ABI names this constructor.
    if (auto* real = next<void(TraceObject*, const char*, int)>("_ZN11TraceObjectC1EPKci")) {
        real(this, identity, level);
    }
    const Session* session = joinSession();
    if (session != nullptr && session->setTraceLevel && m_settings != nullptr) {
        m_settings->level = session->traceLevel;
    }
}

INTERPOSED int boardUtils::getVersion(int& version)
{
    Session* session = joinSession();
    if (session == nullptr) {
        auto* real = next<int(boardUtils*, int&)>("_ZN10boardUtils10getVersionERi");
        return real == nullptr ? 0 : real(this, version);
    }
    const BoardAccess board(session->board);
    return board.isOpen() && board.hardwareVersion(version) ? 1 : 0;
}
