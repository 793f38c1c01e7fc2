// pmfile: makes, shows, checks and compares PM data files, and reads them back from a chip. This is
// its command line; each command has a file of its own.
#include <getopt.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "check.h"
#include "diff.h"
#include "list.h"
#include "messages.h"
#include "names.h"
#include "readChip.h"
#include "selectedPage.h"
#include "show.h"
#include "standardStreams.h"
#include "text.h"
#include "trace.h"

namespace {

constexpr int TRACE_LEVEL = 4; // errors and warnings

constexpr const char* HELP =
    R"(Usage: pmfile show [--json] [--names LIST] FILE
       pmfile check [--allow NAME]... [--deny NAME]... [--names LIST] FILE...
       pmfile diff [--settings] [--names LIST] OLD NEW
       pmfile source [--names LIST] FILE
       pmfile make [--allow NAME]... LIST [-o FILE]
       pmfile read [--bus N] [--like FILE] [--no-identity] [--force] [-o FILE]
       pmfile --help | --version

Works with PM data files, the settings of a MAX34460 power monitor.

  show             print the settings in a file, with units
  check            print the problems of files
  diff             print the registers that two files set differently
  source           print the list that makes a file
  make             make a file from a list
  read             back up the settings that the chip holds

  --json           print JSON, for programs
  --allow NAME     don't report this problem; all: none at all (repeatable)
  --deny NAME      report this problem, even with --allow all (repeatable)
  --names LIST     show the names that the sections of this list have
  --settings       compare what the chip keeps in flash, and nothing else
  --bus N          read the chip on /dev/i2c-N (default: 0)
  --like FILE      read only the settings that this file lists
  --no-identity    leave out MFR_LOCATION and MFR_SERIAL
  --force          replace an existing file
  -o FILE          write to this file (default: -)
  --help           show this text
  --version        show the version

The file - is standard input or output. The exit status is 0 on success, 1 if
diff found a difference or check only warnings, and 2 otherwise.
)";

struct Arguments {
    bool json = false;
    bool settings = false;
    Allowed allowed;
    Allowed denied;
    std::optional<std::string> namesPath;
    std::string bus = "0"; ///< as it was given
    ReadOptions read;
    std::vector<std::string> files;
};

/// The options that commands have, by the letters that getopt_long returns.
enum Option {
    JSON = 'j',
    ALLOW = 'a',
    DENY = 'd',
    SETTINGS = 's',
    NAMES = 'N',
    BUS = 'b',
    LIKE = 'l',
    NO_IDENTITY = 'n',
    FORCE = 'f',
    OUTPUT = 'o'
};

constexpr option OPTIONS[] = {{"json", no_argument, nullptr, JSON},
                              {"allow", required_argument, nullptr, ALLOW},
                              {"deny", required_argument, nullptr, DENY},
                              {"settings", no_argument, nullptr, SETTINGS},
                              {"names", required_argument, nullptr, NAMES},
                              {"bus", required_argument, nullptr, BUS},
                              {"like", required_argument, nullptr, LIKE},
                              {"no-identity", no_argument, nullptr, NO_IDENTITY},
                              {"force", no_argument, nullptr, FORCE},
                              {nullptr, 0, nullptr, 0}};

constexpr struct Subcommand {
    const char* name;
    const char* options; ///< letters of its options
    std::size_t fewest;  ///< number of files
    std::size_t most;
    int (*run)(const Arguments& arguments);
} COMMANDS[] = {
    {"show", "jN", 1, 1, [](const Arguments& given) { return show(given.files[0], given.json); }},
    {"check", "adN", 1, SIZE_MAX,
     [](const Arguments& given) {
         return check(given.files, without(given.allowed, given.denied));
     }},
    {"diff", "sN", 2, 2,
     [](const Arguments& given) { return diff(given.files[0], given.files[1], given.settings); }},
    {"source", "N", 1, 1, [](const Arguments& given) { return source(given.files[0]); }},
    {"make", "ao", 1, 1,
     [](const Arguments& given) { return make(given.files[0], given.read.output, given.allowed); }},
    {"read", "blnfo", 0, 0, [](const Arguments& given) { return readChip(given.read); }},
};

/// Tells what is wrong with the command line.
void tellMisuse(const std::string& what)
{
    tell(what + " (see pmfile --help)");
}

std::string optionName(int letter)
{
    for (const option& one : OPTIONS) {
        if (one.name != nullptr && one.val == letter) {
            return formatted("--%s", one.name);
        }
    }
    return formatted("-%c", letter);
}

/// The option that getopt_long does not know: `word` has it, alone if it is a long one.
std::string unknownOption(const std::string& word)
{
    return word.starts_with("--") ? word : formatted("-%c", optopt);
}

void takeOption(int letter, Arguments& arguments)
{
    switch (letter) {
    case JSON:
        arguments.json = true;
        break;
    case ALLOW:
        arguments.allowed.emplace_back(optarg);
        break;
    case DENY:
        arguments.denied.emplace_back(optarg);
        break;
    case SETTINGS:
        arguments.settings = true;
        break;
    case NAMES:
        arguments.namesPath = optarg;
        break;
    case BUS:
        arguments.bus = optarg;
        break;
    case LIKE:
        arguments.read.like = optarg;
        break;
    case NO_IDENTITY:
        arguments.read.identity = false;
        break;
    case FORCE:
        arguments.read.force = true;
        break;
    default:
        arguments.read.output = optarg;
        break;
    }
}

/// Parses the options and files after the command. False, with a message, if they don't fit it.
bool takeArguments(const Subcommand& command, int argc, char** argv, Arguments& arguments)
{
    opterr = 0;
    for (int letter = 0; (letter = getopt_long(argc, argv, ":o:", OPTIONS, nullptr)) != -1;) {
        if (letter == ':') {
            tellMisuse(formatted("option '%s' needs a value", optionName(optopt).c_str()));
            return false;
        }
        if (letter == '?' || std::strchr(command.options, letter) == nullptr) {
            const std::string name =
                letter == '?' ? unknownOption(argv[optind - 1]) : optionName(letter);
            tellMisuse(formatted("%s has no option '%s'", command.name, name.c_str()));
            return false;
        }
        takeOption(letter, arguments);
    }
    arguments.files.assign(argv + optind, argv + argc);
    if (arguments.files.size() < command.fewest || arguments.files.size() > command.most) {
        tellMisuse(formatted("%s %s", command.name,
                             command.most == 0   ? "takes no file except in its options"
                             : command.most == 1 ? "takes one file"
                             : command.most == 2 ? "takes two files"
                                                 : "needs a file"));
        return false;
    }
    std::string error = takeBus(arguments.bus, arguments.read.bus);
    if (!error.empty()) {
        tellMisuse(error);
        return false;
    }
    if (arguments.namesPath && !readNames(*arguments.namesPath, boardNames, error)) {
        tell(error);
        return false;
    }
    return areComplaints("allow", arguments.allowed) && areComplaints("deny", arguments.denied);
}

int run(int argc, char** argv)
{
    const std::string name = argc < 2 ? "" : argv[1];
    if (name == "--help" || name == "--version") {
        print(name == "--help" ? HELP : "pmfile " PMFILE_VERSION "\n");
        return finishOutput(STATUS_GOOD);
    }
    for (const Subcommand& command : COMMANDS) {
        if (name == command.name) {
            Arguments arguments;
            optind = 2;
            return takeArguments(command, argc, argv, arguments) ? command.run(arguments)
                                                                 : STATUS_TROUBLE;
        }
    }
    tellMisuse(name.empty() ? "no command" : formatted("there is no command '%s'", name.c_str()));
    return STATUS_TROUBLE;
}

[[noreturn]] void endWithoutMemory()
{
    std::fputs("pmfile: out of memory\n", stderr);
    std::_Exit(STATUS_TROUBLE);
}

} // namespace

int main(int argc, char** argv)
{
    if (!openStandardStreams()) {
        return STATUS_TROUBLE;
    }
    // If the reader goes away or the file may not grow, a write fails, and that is reported.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::set_new_handler(endWithoutMemory);
    programName = "pmfile";
    TraceObject trace("pmfile", TRACE_LEVEL);
    g_traceObject = &trace;
    const int status = run(argc, argv);
    g_traceObject = nullptr;
    return status;
}
