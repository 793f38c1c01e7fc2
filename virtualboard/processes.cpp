#include "processes.h"

#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>

namespace virtualboard {

namespace {

struct Process {
    pid_t parent;
    bool hasEnded;
};

using Processes = std::map<pid_t, Process>;

Processes listProcesses()
{
    Processes processes;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        if (std::isdigit(static_cast<unsigned char>(name.front())) == 0) {
            continue;
        }
        std::ifstream file(entry.path() / "stat");
        // Unlike an iterator, getline does not throw where the process ends meanwhile (ESRCH).
        std::string text;
        std::getline(file, text, '\0');
        // Behind the command's name, which may hold anything, come the state and the parent.
        std::istringstream rest(text.substr(std::min(text.rfind(')'), text.size() - 1) + 1));
        char state = 'X';
        pid_t parent = 0;
        if (rest >> state >> parent) {
            processes[static_cast<pid_t>(std::strtol(name.c_str(), nullptr, 10))] = {
                parent, state == 'Z' || state == 'X'};
        }
    }
    return processes;
}

/// Empty if it can't be told: an ancestor ended while the processes were listed, and its children
/// have another parent now.
std::optional<bool> descendsFrom(pid_t process, pid_t ancestor, const Processes& processes)
{
    while (process != 0 && process != ancestor) {
        const auto found = processes.find(process);
        if (found == processes.end()) {
            return std::nullopt;
        }
        process = found->second.parent;
    }
    return process == ancestor;
}

} // namespace

void adoptOrphans()
{
    prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
}

void killRun(pid_t launcher)
{
    // What is killed may have started another one just before: look again until there is none.
    for (bool again = launcher != 0; again;) {
        again = false;
        const Processes processes = listProcesses();
        for (const auto& [id, process] : processes) {
            const bool isOther = id != launcher && id != getpid() && !process.hasEnded;
            const auto descends = isOther ? descendsFrom(id, launcher, processes) : false;
            const bool isKilled = descends.value_or(false) && kill(id, SIGKILL) == 0;
            again = again || isKilled || !descends.has_value();
        }
        constexpr int PAUSE_MS = 1;
        poll(nullptr, 0, again ? PAUSE_MS : 0);
    }
    raise(SIGKILL);
}

} // namespace virtualboard
