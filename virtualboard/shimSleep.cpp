// The shim's sleeps: they last as long as the time scale says, and the whole of them passes on the
// virtual clock.

#undef _TIME_BITS

#include "shim.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "session.h"

namespace virtualboard {

namespace {

constexpr long NS_PER_S = 1000000000;
constexpr unsigned int US_PER_S = 1000000;
constexpr long NS_PER_US = 1000;
constexpr double LONGEST_S = 2000000000; // fits a 32-bit time_t; "for ever" is more

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

// Sleeps `seconds` at the session's scale and lets the virtual clock advance by the whole of them.
// Returns 0, or the errno with the unscaled rest in `rest`.
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
    const FileLock turn = takeTurn(session);
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
    if (error != 0) {
        errno = error;
        return -1;
    }
    return 0;
}

INTERPOSED unsigned int sleep(unsigned int seconds)
{
    const timespec time = toTimespec(seconds);
    timespec left = {};
    nanosleep(&time, &left);
    return static_cast<unsigned int>(std::lround(toSeconds(left)));
}

INTERPOSED int usleep(useconds_t microseconds)
{
    timespec time = {};
    time.tv_sec = static_cast<time_t>(microseconds / US_PER_S);
    time.tv_nsec = static_cast<long>(microseconds % US_PER_S) * NS_PER_US;
    return nanosleep(&time, nullptr);
}

} // extern "C"
