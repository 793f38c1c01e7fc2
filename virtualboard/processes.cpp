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
#include <iterator>
#include <map>
#include <sstream>
#include <string>

namespace virtualboard {

namespace {

// The parents of all processes that have not ended, by process id.
std::map<pid_t, pid_t> listParents()
{
    std::map<pid_t, pid_t> parents;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        if (std::isdigit(static_cast<unsigned char>(name.front())) == 0) {
            continue;
        }
        std::ifstream file(entry.path() / "stat");
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        // Behind the command's name, which may hold anything, come the state and the parent.
        std::istringstream rest(text.substr(std::min(text.rfind(')'), text.size() - 1) + 1));
        char state = 'X';
        pid_t parent = 0;
        if (rest >> state >> parent && state != 'Z' && state != 'X') {
            parents[static_cast<pid_t>(std::strtol(name.c_str(), nullptr, 10))] = parent;
        }
    }
    return parents;
}

bool descendsFrom(pid_t process, pid_t ancestor, const std::map<pid_t, pid_t>& parents)
{
    for (auto at = parents.find(process); at != parents.end(); at = parents.find(at->second)) {
        if (at->second == ancestor) {
            return true;
        }
    }
    return false;
}

} // namespace

void adoptOrphans()
{
    prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
}

void killRun(pid_t launcher)
{
    // What is killed may have started another one just before: look again until there is none.
    for (bool found = launcher != 0; found;) {
        found = false;
        const std::map<pid_t, pid_t> parents = listParents();
        for (const auto& [process, parent] : parents) {
            if (process != getpid() && descendsFrom(process, launcher, parents)) {
                found = kill(process, SIGKILL) == 0 || found;
            }
        }
        constexpr int PAUSE_MS = 1;
        poll(nullptr, 0, found ? PAUSE_MS : 0);
    }
    raise(SIGKILL);
}

} // namespace virtualboard
