// virtual-board: runs a command with a virtual board in the place of the real
// one. Reads the options, readies the board and the session, preloads the shim
// into the command, and reports.
#include <fcntl.h>
#include <getopt.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>

#include "board.h"
#include "session.h"

namespace {

using namespace virtualboard;

constexpr int STATUS_USAGE = 2;
// What shells return for a command that can't be run, isn't there, was killed.
constexpr int STATUS_NOT_EXECUTABLE = 126;
constexpr int STATUS_NOT_FOUND = 127;
constexpr int STATUS_SIGNAL = 128;

constexpr const char* LIBRARY = "libvirtualboard.so";
constexpr const char* INSTALLED_LIBRARY = "../lib/pmadmin/libvirtualboard.so";

constexpr const char* HELP =
    R"(Usage: virtual-board [OPTIONS] [--] COMMAND [ARG...]

Runs COMMAND, and all that it starts, on a virtual board: /dev/i2c-0 with a
MAX34460 at address 0x74, kept in a file between runs.

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
    Session session;
};

[[noreturn]] void refuse(const std::string& reason)
{
    std::fprintf(stderr, "virtual-board: %s\n", reason.c_str());
    std::exit(STATUS_USAGE);
}

std::optional<long> parseNumber(const char* text, long least, long most)
{
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text, &end, 0);
    if (end == text || *end != '\0' || errno != 0 || number < least || number > most) {
        return std::nullopt;
    }
    return number;
}

int requireNumber(const char* option, const char* text, long least, long most)
{
    const std::optional<long> number = parseNumber(text, least, most);
    if (!number) {
        refuse(std::string("--") + option + " needs a number from " + std::to_string(least) + " to "
               + std::to_string(most) + ", not '" + text + "'");
    }
    return static_cast<int>(*number);
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

void addFault(Session& session, const char* rule)
{
    if (session.faultCount == MAX_FAULTS) {
        refuse("more than " + std::to_string(MAX_FAULTS) + " rules of --fault");
    }
    if (!parseFault(rule, session.faults[session.faultCount])) {
        refuse(std::string("--fault doesn't know the rule '") + rule + "' (see --help)");
    }
    ++session.faultCount;
}

enum OptionId {
    // Clear of what getopt_long itself returns: -1, '?' and ':'.
    BOARD = 1,
    POWER_CYCLE,
    HW_VERSION,
    MODEL,
    LOG_FILE,
    TRACE_LEVEL,
    BUS_LOG,
    PID,
    TIME_SCALE,
    SUMMARY,
    FAULT,
    SHOW_HELP,
    SHOW_VERSION,
};

constexpr option LONG_OPTIONS[] = {
    {"board", required_argument, nullptr, BOARD},
    {"power-cycle", no_argument, nullptr, POWER_CYCLE},
    {"hw-version", required_argument, nullptr, HW_VERSION},
    {"model", required_argument, nullptr, MODEL},
    {"log", required_argument, nullptr, LOG_FILE},
    {"trace-level", required_argument, nullptr, TRACE_LEVEL},
    {"bus-log", required_argument, nullptr, BUS_LOG},
    {"pid", no_argument, nullptr, PID},
    {"time-scale", required_argument, nullptr, TIME_SCALE},
    {"summary", no_argument, nullptr, SUMMARY},
    {"fault", required_argument, nullptr, FAULT},
    {"help", no_argument, nullptr, SHOW_HELP},
    {"version", no_argument, nullptr, SHOW_VERSION},
    {nullptr, 0, nullptr, 0},
};

void takeOption(Options& options, int id)
{
    Session& session = options.session;
    switch (id) {
    case BOARD:
        options.board = optarg;
        return;
    case POWER_CYCLE:
        options.powerCycle = true;
        return;
    case HW_VERSION:
        options.setHardwareVersion = true;
        options.hardwareVersion.reset();
        if (std::strcmp(optarg, "none") != 0) {
            options.hardwareVersion = requireNumber("hw-version", optarg, INT32_MIN, INT32_MAX);
        }
        return;
    case MODEL:
        options.model = requireNumber("model", optarg, 0, 0xFF);
        return;
    case LOG_FILE:
        options.log = optarg;
        return;
    case TRACE_LEVEL:
        session.setTraceLevel = true;
        session.traceLevel = requireNumber("trace-level", optarg, INT32_MIN, INT32_MAX);
        return;
    case BUS_LOG:
        options.busLog = optarg;
        return;
    case PID:
        session.showPid = true;
        return;
    case TIME_SCALE:
        session.timeScale = requireScale(optarg);
        return;
    case SUMMARY:
        options.summary = true;
        return;
    case FAULT:
        addFault(session, optarg);
        return;
    case SHOW_HELP:
        std::printf("%s%s", HELP, FAULT_HELP);
        std::exit(EXIT_SUCCESS);
    case SHOW_VERSION:
        std::printf("virtual-board %s\n", VIRTUAL_BOARD_VERSION);
        std::exit(EXIT_SUCCESS);
    default:
        break;
    }
}

// Leaves optind at the command.
Options parseOptions(int argc, char** argv)
{
    Options options;
    opterr = 0;
    for (int at = 1;; at = optind) {
        const int id = getopt_long(argc, argv, "+:", LONG_OPTIONS, nullptr);
        if (id == -1) {
            break;
        }
        if (id == ':') {
            refuse(std::string("option '") + argv[at] + "' needs a value (see --help)");
        }
        if (id == '?') {
            refuse(std::string("wrong option '") + argv[at] + "' (see --help)");
        }
        takeOption(options, id);
    }
    if (optind >= argc) {
        refuse("no command to run (see --help)");
    }
    return options;
}

// The shim lies beside the launcher where it was built, else where it is installed.
std::string findLibrary()
{
    std::error_code error;
    const auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    for (const char* place : {LIBRARY, INSTALLED_LIBRARY}) {
        const auto library = (folder / place).lexically_normal();
        if (std::filesystem::exists(library, error)) {
            return library.string();
        }
    }
    refuse(std::string("cannot find ") + LIBRARY + " beside " + folder.string());
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
        *bytesOf(board.chip().ram, code::MFR_MODEL, ALL_PAGES) =
            static_cast<std::uint8_t>(*options.model);
    }
    if (!board.save()) {
        refuse(board.error());
    }
}

// Our library first, then the caller's others: an outer launcher's gives way.
void setPreload(const std::string& library)
{
    const char* outer = std::getenv("LD_PRELOAD");
    std::string preload = library;
    for (const char* at = outer == nullptr ? "" : outer; *at != '\0';) {
        const std::string entry(at, std::strcspn(at, ": "));
        at += entry.size();
        at += std::strspn(at, ": ");
        if (!entry.empty() && std::filesystem::path(entry).filename() != LIBRARY) {
            preload += ":" + entry;
        }
    }
    setenv("LD_PRELOAD", preload.c_str(), 1);
}

volatile pid_t child = 0; // what the signal handler forwards to

void forward(int signal)
{
    const int reason = errno;
    kill(child, signal);
    errno = reason;
}

// The launcher's own signals while the command runs. Those of the terminal reach
// the command by themselves, those meant to end the launcher are passed on.
class Signals {
public:
    Signals()
    {
        // Held back until there is a child to pass them to.
        sigemptyset(&m_forwarded);
        sigaddset(&m_forwarded, SIGTERM);
        sigaddset(&m_forwarded, SIGHUP);
        sigprocmask(SIG_BLOCK, &m_forwarded, &m_mask);
        m_interrupt = signal(SIGINT, SIG_IGN);
        m_quit = signal(SIGQUIT, SIG_IGN);
    }

    void restoreForChild() const
    {
        signal(SIGINT, m_interrupt);
        signal(SIGQUIT, m_quit);
        sigprocmask(SIG_SETMASK, &m_mask, nullptr);
    }

    void startForwarding() const
    {
        for (const int number : {SIGTERM, SIGHUP}) {
            // A signal that the launcher was told to ignore stays ignored.
            if (signal(number, forward) == SIG_IGN) {
                signal(number, SIG_IGN);
            }
        }
        sigprocmask(SIG_SETMASK, &m_mask, nullptr);
    }

private:
    sigset_t m_forwarded{};
    sigset_t m_mask{};
    sighandler_t m_interrupt = SIG_DFL;
    sighandler_t m_quit = SIG_DFL;
};

[[noreturn]] void execute(char** command)
{
    execvp(command[0], command);
    const int error = errno;
    std::fprintf(stderr, "virtual-board: cannot run '%s': %s\n", command[0], std::strerror(error));
    _exit(error == ENOENT ? STATUS_NOT_FOUND : STATUS_NOT_EXECUTABLE);
}

int runCommand(char** command, const std::string& library, const std::string& sessionPath)
{
    const Signals signals;
    child = fork();
    if (child == 0) {
        setPreload(library);
        setenv(SESSION_VARIABLE, sessionPath.c_str(), 1);
        signals.restoreForChild();
        execute(command);
    }
    if (child < 0) {
        std::fprintf(stderr, "virtual-board: cannot start a process: %s\n", std::strerror(errno));
        return STATUS_NOT_EXECUTABLE;
    }
    signals.startForwarding();
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? STATUS_SIGNAL + WTERMSIG(status) : WEXITSTATUS(status);
}

void printSummary(const Session& session)
{
    constexpr std::uint64_t BITS_PER_MS = 100; // at 100 kHz
    std::fprintf(stderr,
                 "virtual-board: %llu transfers, %llu failures, %llu bytes, "
                 "%llu.%02llu ms on a 100 kHz bus\n",
                 static_cast<unsigned long long>(session.transfers),
                 static_cast<unsigned long long>(session.failures),
                 static_cast<unsigned long long>(session.bytes),
                 static_cast<unsigned long long>(session.bits / BITS_PER_MS),
                 static_cast<unsigned long long>(session.bits % BITS_PER_MS));
}

} // namespace

int main(int argc, char** argv)
{
    Options options = parseOptions(argc, argv);
    const std::string library = findLibrary();
    copyPath(options.session.board, options.board.empty() ? "" : absolutePath(options.board));
    takeLog(options.session.log, options.log);
    takeLog(options.session.busLog, options.busLog);
    readyBoard(options);

    std::string path;
    std::string error;
    const Session* session = shareSession(options.session, path, error);
    const int status = session == nullptr ? STATUS_USAGE : runCommand(argv + optind, library, path);
    unlink(path.c_str());
    if (session == nullptr) {
        refuse(error);
    }
    if (options.summary) {
        printSummary(*session);
    }
    return status;
}
