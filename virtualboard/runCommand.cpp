#include "runCommand.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "processes.h"
#include "session.h"

namespace virtualboard {

namespace {

// What shells return for a command that can't be run, isn't found, or was killed.
constexpr int STATUS_NOT_EXECUTABLE = 126;
constexpr int STATUS_NOT_FOUND = 127;
constexpr int STATUS_SIGNAL = 128;

// The shim lies with the stand-ins for the board's libraries. Where, seen from the launcher, comes
// from the build: LIBRARIES_INSTALLED and, before installation, LIBRARIES_BUILT.
constexpr const char* SHIM = "libvirtualboard.so";

std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// Our libraries first, then the caller's, without those of an outer launcher.
void setEnvironment(const std::string& libraries, const char* sessionFolder)
{
    std::string preload = libraries + "/" + SHIM;
    const std::string others = environment("LD_PRELOAD");
    for (std::size_t at = 0; at < others.size();) {
        const std::size_t end = std::min(others.find_first_of(": ", at), others.size());
        const std::string entry = others.substr(at, end - at);
        at = end + 1;
        if (!entry.empty() && std::filesystem::path(entry).filename() != SHIM) {
            preload += ":" + entry;
        }
    }
    const std::string path = environment("LD_LIBRARY_PATH");
    setenv("LD_PRELOAD", preload.c_str(), 1);
    setenv("LD_LIBRARY_PATH", (libraries + (path.empty() ? "" : ":") + path).c_str(), 1);
    setenv(SESSION_VARIABLE, sessionFolder, 1);
}

[[noreturn]] void execute(char** command)
{
    execvp(command[0], command);
    const int error = errno;
    std::fprintf(stderr, "virtual-board: cannot run '%s': %s\n", command[0], std::strerror(error));
    _exit(error == ENOENT ? STATUS_NOT_FOUND : STATUS_NOT_EXECUTABLE);
}

// Waits for the command and returns its status as shells do. Signals meant to end the launcher are
// passed on to it; those of the terminal reach it anyway.
int waitFor(pid_t command, const sigset_t& signals)
{
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(-1, &status, WNOHANG)) != command && ended >= 0) {
        if (ended > 0) {
            continue; // what the command left behind
        }
        const int signal = sigwaitinfo(&signals, nullptr);
        if (signal == SIGTERM || signal == SIGHUP) {
            kill(command, signal);
        }
    }
    return WIFSIGNALED(status) ? STATUS_SIGNAL + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

bool findLibraries(std::string& folder, std::string& error)
{
    std::error_code ignored;
    const auto own = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const char* libraries : {LIBRARIES_INSTALLED, LIBRARIES_BUILT}) {
        folder = (own / libraries).lexically_normal().string();
        if (std::filesystem::exists(folder + "/" + SHIM, ignored)) {
            return true;
        }
    }
    error = "cannot find " + (own / LIBRARIES_INSTALLED / SHIM).lexically_normal().string();
    return false;
}

bool makeLoadable(std::string& libraries, const std::string& sessionFolder, std::string& error)
{
    constexpr const char* DIVIDERS = " :";
    if (libraries.find_first_of(DIVIDERS) == std::string::npos) {
        return true;
    }
    const std::string link = sessionFolder + "/libraries";
    if (link.find_first_of(DIVIDERS) != std::string::npos
        || symlink(libraries.c_str(), link.c_str()) != 0) {
        error = "cannot load from " + libraries + ", nor through " + sessionFolder
                + ": a path may have no space and no colon";
        return false;
    }
    libraries = link;
    return true;
}

int runCommand(char** command, const std::string& libraries, const char* sessionFolder)
{
    // From here on the launcher's signals wait until waitFor asks for them.
    sigset_t signals;
    sigset_t mask;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, number);
    }
    sigprocmask(SIG_BLOCK, &signals, &mask);
    // If the caller ignores it, the kernel keeps no status of the command.
    const auto childHandler = signal(SIGCHLD, SIG_DFL);

    adoptOrphans();
    const pid_t child = fork();
    if (child == 0) {
        setEnvironment(libraries, sessionFolder);
        signal(SIGCHLD, childHandler);
        sigprocmask(SIG_SETMASK, &mask, nullptr);
        execute(command);
    }
    if (child < 0) {
        std::fprintf(stderr, "virtual-board: cannot start a process: %s\n", std::strerror(errno));
        return STATUS_NOT_EXECUTABLE;
    }
    return waitFor(child, signals);
}

} // namespace virtualboard
