#include "options.h"

#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace virtualboard {

namespace {

constexpr int STATUS_USAGE = 2;

constexpr const char* HELP =
    R"(Usage: virtual-board [OPTIONS] [--] COMMAND [ARG...]
       virtual-board [--board FILE] [--power-cycle] [--hw-version N] [--model BYTE]
                     [--supply N=VOLTS]... [--sensor N=CELSIUS]...
       virtual-board [--board FILE] --remove

Runs COMMAND, and everything that it starts, on a virtual board: /dev/i2c-0 with
a MAX34460 at address 0x74, kept in a file between runs. Without COMMAND it only
applies the options to the board.

  --board FILE      the board's memory, made with factory settings on first use
                    (default: virtual-board.state)
  --remove          remove the board and its lock, unless they are in use
  --power-cycle     restart the chip from its flash before COMMAND runs
  --hw-version N    the hardware version that the board reports from now on;
                    none: no hardware version (factory: 3)
  --model BYTE      the chip's MFR_MODEL from now on (factory: 0x5A)
  --supply N=VOLTS[@RATIO]
                    supply N, 0 to 11, has this voltage from now on, of which a
                    divider passes RATIO on (default: as VOUT_SCALE_MONITOR says)
  --supply all=nominal
                    all that have a nominal voltage have that, behind dividers
                    as VOUT_SCALE_MONITOR says
  --sensor N=CELSIUS
                    sensor N, 0 to 4, has this temperature from now on, or is
                    faulty or disabled; N=none and, of supplies, all=none: it
                    shows what a new board does, and is not watched
  --log FILE        append syslog messages to FILE; - is standard error
  --trace-level N   the trace level that COMMAND sees
  --bus-log FILE    append each I2C transfer to FILE, in bus notation
  --pid             begin the lines of both logs with the process id
  --time-scale X    make sleeps last X times as long (default 1; 0 skips them)
  --summary         print a summary of the transfers at the end
  --fault RULE      make something fail (repeatable)
  --help            show this text
  --version         show the version

The exit status is that of COMMAND, 128 + N if signal N killed it, 127 if it
isn't found, 126 if it can't be run, and 2 if an option or the board is wrong.

)";

int requireNumber(const char* option, const char* text, int least, int most)
{
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text, &end, std::strncmp(text, "0x", 2) == 0 ? 16 : 10);
    if (end == text || *end != '\0' || errno != 0 || number < least || number > most) {
        giveUp(std::string("--") + option + " needs a number from " + std::to_string(least) + " to "
               + std::to_string(most) + ", not '" + text + "'");
    }
    return static_cast<int>(number);
}

double requireScale(const char* text)
{
    double scale = 0;
    if (!parseDecimal(text, scale) || std::signbit(scale)) {
        giveUp(std::string("--time-scale needs a decimal number from 0 on, not '") + text + "'");
    }
    return scale;
}

void addSupply(Options& options, const char* value)
{
    if (!parseSupplyOption(value, options.inputs.emplace_back())) {
        giveUp(std::string("--supply '") + value + "': expected N=VOLTS, N=VOLTS@RATIO, N=none, "
               + "all=nominal or all=none (see --help)");
    }
}

void addSensor(Options& options, const char* value)
{
    if (!parseSensorOption(value, options.inputs.emplace_back())) {
        giveUp(std::string("--sensor '") + value + "': expected N=CELSIUS, N=faulty, N=disabled or "
               + "N=none (see --help)");
    }
}

void addFault(Options& options, const char* rule)
{
    Session& session = options.session;
    if (session.faultCount == MAX_FAULTS) {
        giveUp("more than " + std::to_string(MAX_FAULTS) + " rules of --fault");
    }
    std::string error;
    if (!parseFault(rule, session.faults[session.faultCount], error)) {
        giveUp(std::string("--fault '") + rule + "': " + error + " (see --help)");
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

[[noreturn]] void show(const std::string& text)
{
    if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        giveUp(std::string("cannot write to standard output: ") + std::strerror(errno));
    }
    std::exit(EXIT_SUCCESS);
}

[[noreturn]] void showHelp(Options&, const char*)
{
    show(std::string(HELP) + FAULT_HELP);
}

[[noreturn]] void showVersion(Options&, const char*)
{
    show("virtual-board " VIRTUAL_BOARD_VERSION "\n");
}

constexpr struct {
    const char* name;
    int argument; ///< as getopt_long has it
    void (*take)(Options& to, const char* value);
} OPTIONS[] = {
    {"board", required_argument, [](Options& to, const char* value) { to.board = value; }},
    {"remove", no_argument, [](Options& to, const char*) { to.remove = true; }},
    {"power-cycle", no_argument, [](Options& to, const char*) { to.powerCycle = true; }},
    {"hw-version", required_argument, takeHardwareVersion},
    {"model", required_argument,
     [](Options& to, const char* value) { to.model = requireNumber("model", value, 0, 0xFF); }},
    {"supply", required_argument, addSupply},
    {"sensor", required_argument, addSensor},
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

} // namespace

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
            giveUp(std::string("option '") + argv[at] + "' needs a value (see --help)");
        }
        if (result == '?') {
            giveUp(std::string("invalid option '") + argv[at] + "' (see --help)");
        }
        OPTIONS[index].take(options, optarg);
    }
    if (options.remove && (optind < argc || options.changesBoard())) {
        giveUp("--remove takes no command, and no option but --board");
    }
    if (optind >= argc && !options.remove && !options.changesBoard()) {
        giveUp("no command to run (see --help)");
    }
    return options;
}

void giveUp(const std::string& reason)
{
    std::fprintf(stderr, "virtual-board: %s\n", reason.c_str());
    std::exit(STATUS_USAGE);
}

} // namespace virtualboard
