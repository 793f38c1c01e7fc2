// virtual-board: runs a command with a virtual board in the place of the real one. Reads the
// options, readies the board and the session, hides the machine's own buses, preloads the shim into
// the command, and reports.
#include <fcntl.h>
#include <getopt.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "board.h"
#include "isolation.h"
#include "session.h"

namespace {

using namespace virtualboard;

constexpr int STATUS_USAGE = 2;
// What shells return for a command that can't be run, isn't there, was killed.
constexpr int STATUS_NOT_EXECUTABLE = 126;
constexpr int STATUS_NOT_FOUND = 127;
constexpr int STATUS_SIGNAL = 128;

// Where the shim and the stand-ins for the board's libraries are, seen from the launcher.
constexpr const char* LIBRARIES = "../lib/pmadmin";
constexpr const char* SHIM = "libvirtualboard.so";

constexpr const char* HELP =
    R"(Usage: virtual-board [OPTIONS] [--] COMMAND [ARG...]
       virtual-board [--board FILE] [--power-cycle] [--hw-version N] [--model BYTE]

Runs COMMAND, and all that it starts, on a virtual board: /dev/i2c-0 with a
MAX34460 at address 0x74, kept in a file between runs. Without COMMAND it does
to the board what the options say.

  --board FILE      the board's memory, made with factory settings on first use
                    (default: virtual-board.state)
  --power-cycle     restart the chip from its flash before COMMAND runs
  --hw-version N    the hardware version that the board reports from now on;
                    none: it reports none (factory: 3)
  --model BYTE      the chip's MFR_MODEL from now on (factory: 0x5A)
  --log FILE        append syslog messages as lines; - is standard error
  --trace-level N   the trace level that COMMAND sees
  --bus-log FILE    append each I2C transfer as a line in bus notation
  --pid             begin the lines of both logs with the process id
  --time-scale X    sleeps last X times as long (default 1; 0 skips them)
  --summary         in the end, say on standard error what went over the bus
  --fault RULE      make something fail (repeatable)
  --help            show this text
  --version         show the version

The exit status is COMMAND's own, 128 + N if signal N killed it, 127 if it isn't
found, 126 if it can't be run, and 2 if an option or the board is wrong.

)";

struct Options {
    std::string board = "virtual-board.state";
    bool powerCycle = false;
    bool summary = false;
    bool setHardwareVersion = false;
    std::optional<int> hardwareVersion; ///< empty: none
    std::optional<int> model;
    std::optional<std::string> log;
    std::optional<std::string> busLog;
    std::vector<std::string> rules; ///< of the session's faults
    Session session;

    bool changesBoard() const { return powerCycle || setHardwareVersion || model; }
};

[[noreturn]] void refuse(const std::string& reason)
{
    std::fprintf(stderr, "virtual-board: %s\n", reason.c_str());
    std::exit(STATUS_USAGE);
}

int requireNumber(const char* option, const char* text, int least, int most)
{
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text, &end, std::strncmp(text, "0x", 2) == 0 ? 16 : 10);
    if (end == text || *end != '\0' || errno != 0 || number < least || number > most) {
        refuse(std::string("--") + option + " needs a number from " + std::to_string(least) + " to "
               + std::to_string(most) + ", not '" + text + "'");
    }
    return static_cast<int>(number);
}

double requireScale(const char* text)
{
    char* end = nullptr;
    const double scale = std::strtod(text, &end);
    if (std::strspn(text, "0123456789.") != std::strlen(text) || end == text || *end != '\0'
        || !std::isfinite(scale)) {
        refuse(std::string("--time-scale needs a decimal number from 0 on, not '") + text + "'");
    }
    return scale;
}

void copyPath(char (&to)[PATH_MAX], const std::string& path)
{
    if (path.empty() || path.size() >= PATH_MAX) {
        refuse(path.empty() ? "a file needs a name" : "this file name is too long: " + path);
    }
    std::memcpy(to, path.c_str(), path.size() + 1);
}

std::string absolutePath(const std::string& path)
{
    std::error_code error;
    const auto absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.string();
}

// A log must be writable before anything runs; "-" is standard error.
void takeLog(char (&to)[PATH_MAX], const std::optional<std::string>& path)
{
    if (!path) {
        return;
    }
    copyPath(to, *path == "-" || path->empty() ? *path : absolutePath(*path));
    if (*path == "-") {
        return;
    }
    const int fd = open(to, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        refuse("cannot write " + *path + ": " + std::strerror(errno));
    }
    close(fd);
}

void addFault(Options& options, const char* rule)
{
    Session& session = options.session;
    if (session.faultCount == MAX_FAULTS) {
        refuse("more than " + std::to_string(MAX_FAULTS) + " rules of --fault");
    }
    std::string error;
    if (!parseFault(rule, session.faults[session.faultCount], error)) {
        refuse(std::string("--fault '") + rule + "': " + error + " (see --help)");
    }
    ++session.faultCount;
    options.rules.emplace_back(rule);
}

void takeHardwareVersion(Options& options, const char* value)
{
    options.setHardwareVersion = true;
    options.hardwareVersion.reset();
    if (std::strcmp(value, "none") != 0) {
        options.hardwareVersion = requireNumber("hw-version", value, INT_MIN, INT_MAX);
    }
}

void takeTraceLevel(Options& options, const char* value)
{
    options.session.setTraceLevel = true;
    options.session.traceLevel = requireNumber("trace-level", value, INT_MIN, INT_MAX);
}

[[noreturn]] void showHelp(Options&, const char*)
{
    std::printf("%s%s", HELP, FAULT_HELP);
    std::exit(EXIT_SUCCESS);
}

[[noreturn]] void showVersion(Options&, const char*)
{
    std::printf("virtual-board %s\n", VIRTUAL_BOARD_VERSION);
    std::exit(EXIT_SUCCESS);
}

constexpr struct {
    const char* name;
    int argument; ///< as getopt_long has it
    void (*take)(Options& to, const char* value);
} OPTIONS[] = {
    {"board", required_argument, [](Options& to, const char* value) { to.board = value; }},
    {"power-cycle", no_argument, [](Options& to, const char*) { to.powerCycle = true; }},
    {"hw-version", required_argument, takeHardwareVersion},
    {"model", required_argument,
     [](Options& to, const char* value) { to.model = requireNumber("model", value, 0, 0xFF); }},
    {"log", required_argument, [](Options& to, const char* value) { to.log = value; }},
    {"trace-level", required_argument, takeTraceLevel},
    {"bus-log", required_argument, [](Options& to, const char* value) { to.busLog = value; }},
    {"pid", no_argument, [](Options& to, const char*) { to.session.showPid = true; }},
    {"time-scale", required_argument,
     [](Options& to, const char* value) { to.session.timeScale = requireScale(value); }},
    {"summary", no_argument, [](Options& to, const char*) { to.summary = true; }},
    {"fault", required_argument, addFault},
    {"help", no_argument, showHelp},
    {"version", no_argument, showVersion},
};

// Leaves optind at the command.
Options parseOptions(int argc, char** argv)
{
    option names[std::size(OPTIONS) + 1] = {};
    std::transform(std::begin(OPTIONS), std::end(OPTIONS), names, [](const auto& row) {
        return option{row.name, row.argument, nullptr, 0};
    });
    Options options;
    opterr = 0;
    for (int at = 1;; at = optind) {
        int index = 0;
        const int result = getopt_long(argc, argv, "+:", names, &index);
        if (result == -1) {
            break;
        }
        if (result == ':') {
            refuse(std::string("option '") + argv[at] + "' needs a value (see --help)");
        }
        if (result == '?') {
            refuse(std::string("wrong option '") + argv[at] + "' (see --help)");
        }
        OPTIONS[index].take(options, optarg);
    }
    if (optind >= argc && !options.changesBoard()) {
        refuse("no command to run (see --help)");
    }
    return options;
}

std::string findLibraries()
{
    std::error_code error;
    const auto own = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    std::string folder = (own / LIBRARIES).lexically_normal().string();
    if (!std::filesystem::exists(folder + "/" + SHIM, error)) {
        refuse("cannot find " + folder + "/" + SHIM);
    }
    return folder;
}

// The folder, or a link to it that the loader can read, who divides its lists at spaces and colons.
// Empty if there is none: the loader would go on, and the command reach a real bus.
std::string makeLoadable(const std::string& folder, const std::string& link)
{
    constexpr const char* DIVIDERS = " :";
    if (folder.find_first_of(DIVIDERS) == std::string::npos) {
        return folder;
    }
    const bool linked = link.find_first_of(DIVIDERS) == std::string::npos
                        && symlink(folder.c_str(), link.c_str()) == 0;
    return linked ? link : "";
}

void readyBoard(const Options& options)
{
    std::string error;
    if (!createBoard(options.session.board, error)) {
        refuse(error);
    }
    BoardAccess board(options.session.board);
    if (!board.isOpen()) {
        refuse(board.error());
    }
    if (options.powerCycle) {
        powerUp(board.chip());
    }
    if (options.setHardwareVersion) {
        board.setHardwareVersion(options.hardwareVersion.has_value(),
                                 options.hardwareVersion.value_or(0));
    }
    if (options.model) {
        *bytesOf(board.chip().ram, MfrModel::CODE, Command::ALL_PAGES) =
            static_cast<std::uint8_t>(*options.model);
    }
    if (!board.save()) {
        refuse(board.error());
    }
}

std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// Our libraries first, then the caller's others: an outer launcher's gives way.
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
// passed on to it; those of the terminal reach it by themselves.
int waitFor(pid_t command, const sigset_t& signals)
{
    int status = 0;
    while (waitpid(command, &status, WNOHANG) == 0) {
        const int signal = sigwaitinfo(&signals, nullptr);
        if (signal == SIGTERM || signal == SIGHUP) {
            kill(command, signal);
        }
    }
    return WIFSIGNALED(status) ? STATUS_SIGNAL + WTERMSIG(status) : WEXITSTATUS(status);
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

void printSummary(const Session& session)
{
    constexpr std::uint64_t BITS_PER_MS = 100; // at 100 kHz
    std::fprintf(stderr,
                 "virtual-board: %" PRIu64 " transfers, %" PRIu64 " failures, %" PRIu64
                 " bytes, %" PRIu64 ".%02" PRIu64 " ms on a 100 kHz bus\n",
                 session.transfers, session.failures, session.bytes, session.bits / BITS_PER_MS,
                 session.bits % BITS_PER_MS);
}

// What was written to the bus without a request, in words; empty if nothing was.
std::string findStrayBytes(const std::filesystem::path& folder)
{
    constexpr int SHOWN = 16;
    std::int64_t count = 0;
    std::string first;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const auto size = static_cast<std::int64_t>(entry.file_size(error));
        if (entry.path().filename().string().rfind(BUS_FILE_PREFIX, 0) != 0 || size <= 0) {
            continue;
        }
        const std::int64_t begin = (size - 1) / BUS_FILE_STRIDE * BUS_FILE_STRIDE;
        count += size - begin;
        std::ifstream file(entry.path(), std::ios::binary);
        file.seekg(begin);
        for (int i = 0; i < SHOWN && file.peek() != EOF; ++i) {
            char text[4];
            std::snprintf(text, sizeof text, " %02X", static_cast<unsigned>(file.get()));
            first += text;
        }
    }
    return count == 0 ? ""
                      : std::to_string(count) + (count == 1 ? " byte" : " bytes")
                            + " without a request:" + first;
}

// What an operator must know who believes to have rehearsed something.
void report(const Options& options, const Session& session)
{
    for (std::size_t i = 0; i < options.rules.size(); ++i) {
        if (!session.faults[i].struck) {
            std::fprintf(stderr, "virtual-board: the fault '%s' never struck\n",
                         options.rules[i].c_str());
        }
    }
    if (const std::string stray = findStrayBytes(session.folder); !stray.empty()) {
        std::fprintf(stderr, "virtual-board: the bus got %s\n", stray.c_str());
        if (session.busLog[0] != '\0') {
            appendLine(session, session.busLog, "! " + stray);
        }
    }
    if (options.summary) {
        printSummary(session);
    }
}

} // namespace

int main(int argc, char** argv)
{
    Options options = parseOptions(argc, argv);
    const std::string libraries = findLibraries();
    copyPath(options.session.board, options.board.empty() ? "" : absolutePath(options.board));
    takeLog(options.session.log, options.log);
    takeLog(options.session.busLog, options.busLog);
    readyBoard(options);
    if (optind >= argc) {
        return EXIT_SUCCESS;
    }

    std::string error;
    const Session* session = hideBuses(error) ? shareSession(options.session, error) : nullptr;
    if (session == nullptr) {
        refuse(error);
    }
    const std::string folder = session->folder;
    const std::string loadable = makeLoadable(libraries, folder + "/libraries");
    int status = STATUS_USAGE;
    if (loadable.empty()) {
        std::fprintf(stderr, "virtual-board: cannot load from %s, nor through %s: %s\n",
                     libraries.c_str(), folder.c_str(), "a path may have no space and no colon");
    } else {
        status = runCommand(argv + optind, loadable, session->folder);
        report(options, *session);
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return status;
}
