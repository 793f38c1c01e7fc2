#include "program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "text.h"

namespace {

// As shells have them.
constexpr int NOT_STARTED = 126;
constexpr int NOT_FOUND = 127;
constexpr int SIGNAL_BASE = 128;

/// The ends of a pipe, closed at the end; -1 where there is none.
struct Pipe {
    int ends[2] = {-1, -1};

    Pipe() { isOpen = pipe2(ends, O_CLOEXEC) == 0; }
    ~Pipe()
    {
        closeEnd(0);
        closeEnd(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void closeEnd(int end)
    {
        if (ends[end] >= 0) {
            close(ends[end]);
            ends[end] = -1;
        }
    }

    bool isOpen;
};

/// Reads both pipes until nobody holds their other ends.
void readBoth(Pipe& output, Pipe& errors, Ended& ended)
{
    pollfd waiting[] = {{output.ends[0], POLLIN, 0}, {errors.ends[0], POLLIN, 0}};
    std::string* const texts[] = {&ended.output, &ended.errors};
    while (waiting[0].fd >= 0 || waiting[1].fd >= 0) {
        if (poll(waiting, std::size(waiting), -1) < 0) {
            continue; // a signal
        }
        for (std::size_t i = 0; i < std::size(waiting); ++i) {
            if (waiting[i].revents == 0) {
                continue;
            }
            char some[4096];
            const ssize_t count = read(waiting[i].fd, some, sizeof(some));
            if (count > 0) {
                texts[i]->append(some, static_cast<std::size_t>(count));
            } else if (count == 0 || errno != EINTR) {
                waiting[i].fd = -1;
            }
        }
    }
}

int waitFor(pid_t process)
{
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) {
            return NOT_STARTED;
        }
    }
    return WIFSIGNALED(status) ? SIGNAL_BASE + WTERMSIG(status) : WEXITSTATUS(status);
}

/// Whether a shell takes the character for itself alone, without quotes.
bool isPlain(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0
           || std::strchr("_./:=,+@%-", c) != nullptr;
}

bool isControl(char c)
{
    return std::iscntrl(static_cast<unsigned char>(c)) != 0;
}

} // namespace

Ended runProgram(const Words& command)
{
    Ended ended;
    Pipe output;
    Pipe errors;
    if (!output.isOpen || !errors.isOpen) {
        return {NOT_STARTED, "", std::string("no pipe: ") + std::strerror(errno) + "\n"};
    }
    std::vector<char*> arguments;
    std::ranges::transform(command, std::back_inserter(arguments),
                           [](const std::string& word) { return const_cast<char*>(word.c_str()); });
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors.ends[1], STDERR_FILENO);
    pid_t process = 0;
    const int reason =
        posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    output.closeEnd(1);
    errors.closeEnd(1);
    if (reason != 0) {
        return {reason == ENOENT ? NOT_FOUND : NOT_STARTED, "",
                command[0] + ": " + std::strerror(reason) + "\n"};
    }
    readBoth(output, errors, ended);
    ended.status = waitFor(process);
    return ended;
}

std::string quoted(const std::string& word)
{
    if (!word.empty() && std::ranges::all_of(word, isPlain)) {
        return word;
    }
    const bool hasControls = std::ranges::any_of(word, isControl);
    std::string text = hasControls ? "$'" : "'";
    for (const char c : word) {
        if (isControl(c)) {
            text += formatted("\\%03o", static_cast<unsigned int>(static_cast<unsigned char>(c)));
        } else if (hasControls) {
            text += c == '\'' || c == '\\' ? std::string{'\\', c} : std::string{c};
        } else {
            text += c == '\'' ? "'\\''" : std::string{c};
        }
    }
    return text + "'";
}

std::string typed(const Words& command)
{
    std::string text;
    for (const std::string& word : command) {
        text += (text.empty() ? "" : " ") + quoted(word);
    }
    return text;
}

std::string endInWords(int status)
{
    if (status == 0) {
        return "ok";
    }
    if (status == NOT_FOUND) {
        return "it was not found in PATH";
    }
    if (status == NOT_STARTED) {
        return "it could not be started";
    }
    return status > SIGNAL_BASE ? formatted("it was killed by signal %d", status - SIGNAL_BASE)
                                : formatted("status %d", status);
}
