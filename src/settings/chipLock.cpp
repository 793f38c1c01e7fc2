#include "chipLock.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "pmSemaphore.h"
#include "text.h"

namespace {

constexpr unsigned int SILENT_WAIT_S = 1;

/// Longer than another program needs from its decision to take a stale lock over until it has: of
/// two that do so at once, the last one sees itself as the last process.
constexpr useconds_t TAKEOVER_PAUSE_US = 100000;

/// What /proc says of a process: its name, and the letter of its state. Empty and ' ' if nothing.
struct Process {
    std::string name;
    char state = ' ';
};

Process lookUp(int pid)
{
    char text[256];
    std::FILE* file = std::fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "re");
    if (file == nullptr) {
        return {};
    }
    const std::string stat(text, std::fread(text, 1, sizeof(text), file));
    std::fclose(file);
    // "PID (NAME) STATE ...", where the name may have parentheses and blanks of its own.
    const std::size_t begin = stat.find('(');
    const std::size_t end = stat.rfind(") ");
    if (begin == std::string::npos || end == std::string::npos || end + 2 >= stat.size()) {
        return {};
    }
    return {stat.substr(begin + 1, end - begin - 1), stat[end + 2]};
}

std::string describe(int pid)
{
    if (pid <= 0) {
        return "an unknown process";
    }
    const std::string name = lookUp(pid).name;
    return name.empty() ? formatted("process %d", pid)
                        : formatted("process %d (%s)", pid, name.c_str());
}

/// Whether the process has ended: certainly, not only out of sight.
bool isGone(int pid)
{
    constexpr char ZOMBIE = 'Z';
    return pid > 0 && ((kill(pid, 0) != 0 && errno == ESRCH) || lookUp(pid).state == ZOMBIE);
}

std::string cannotHave(int reason)
{
    return formatted("the lock of the power monitor can't be had: %s", std::strerror(reason));
}

} // namespace

ChipLock::ChipLock(TellWaiting tellWaiting) : m_semId(pmSemaphore::open())
{
    if (m_semId < 0) {
        m_error = cannotHave(errno);
        return;
    }
    for (int left = pmSemaphore::MAX_ATTEMPTS; !attempt(); --left) {
        if (!m_error.empty()) {
            return;
        }
        if (left == 1) {
            takeOver();
            return;
        }
        unsigned int pause = pmSemaphore::ATTEMPT_PAUSE_S;
        if (left == pmSemaphore::MAX_ATTEMPTS) {
            sleep(SILENT_WAIT_S);
            tellWaiting(formatted("waiting for the lock of the power monitor, which %s took",
                                  describe(pmSemaphore::lastProcess(m_semId)).c_str()));
            pause -= SILENT_WAIT_S;
        }
        sleep(pause);
    }
}

ChipLock::~ChipLock()
{
    release();
}

// False with m_error only if another attempt makes no sense.
bool ChipLock::attempt()
{
    m_signalsWait.emplace();
    if (pmSemaphore::tryToChange(m_semId, -1)) {
        return true;
    }
    const int reason = errno;
    m_signalsWait.reset();
    if (reason != EAGAIN) {
        m_error = cannotHave(reason);
    }
    return false;
}

void ChipLock::takeOver()
{
    const int holder = pmSemaphore::lastProcess(m_semId);
    if (!isGone(holder)) {
        m_error = formatted("%s has the lock of the power monitor: let it end first (if it does "
                            "not use the chip, `pmadmin -a` frees the lock)",
                            describe(holder).c_str());
        return;
    }
    m_signalsWait.emplace();
    pmSemaphore::setValue(m_semId, pmSemaphore::TAKEN);
    usleep(TAKEOVER_PAUSE_US);
    isHeld();
}

bool ChipLock::isHeld()
{
    if (!m_signalsWait.has_value()) {
        return false;
    }
    const int holder = pmSemaphore::lastProcess(m_semId);
    if (holder == getpid()) {
        return true;
    }
    m_error = formatted("%s took the lock of the power monitor over", describe(holder).c_str());
    m_signalsWait.reset();
    return false;
}

bool ChipLock::release()
{
    if (!isHeld()) {
        return false;
    }
    pmSemaphore::tryToChange(m_semId, +1);
    m_signalsWait.reset();
    return true;
}
