// pmfile: PM data files that people can make, see, check, compare, and read back from a chip. This
// is its command line; each command is a file of its own.
#include <getopt.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "check.h"
#include "diff.h"
#include "list.h"
#include "messages.h"
#include "readChip.h"
#include "show.h"
#include "standardStreams.h"
#include "trace.h"

namespace {

constexpr int TRACE_LEVEL = 4; // errors and warnings

constexpr const char* HELP =
    R"(Usage: pmfile show [--json] FILE
       pmfile check [--allow NAME]... FILE...
       pmfile diff [--settings] OLD NEW
       pmfile source FILE
       pmfile make [--allow NAME]... LIST [-o FILE]
       pmfile read [--like FILE] [--no-identity] [--force] [-o FILE]
       pmfile --help | --version

Works with PM data files, the settings of a MAX34460 power monitor.

  show             print what a file says, its values in units
  check            is it fit to be written? Print what speaks against it
  diff             print which registers two files set differently
  source           print the list that gives a file
  make             make the file that a list gives
  read             read the settings that the chip holds into a file

  --json           print JSON, for programs
  --allow NAME     don't complain of this; all: of nothing (repeatable)
  --settings       compare what the chip keeps in flash, and nothing else
  --like FILE      read just the settings that this file lists
  --no-identity    leave out MFR_LOCATION and MFR_SERIAL
  --force          replace an existing file
  -o FILE          write to this file (default: -)
  --help           show this text
  --version        show the version

The file - is standard input or output. The exit status is 0 if all is well,
1 if diff found a difference or check nothing worse than warnings, else 2.
)";

struct Arguments {
    bool json = false;
    bool settings = false;
    Allowed allowed;
    ReadOptions read;
    std::vector<std::string> files;
};

/// The options that a command may have, as getopt_long names them by these letters.
enum Option {
    JSON = 'j',
    ALLOW = 'a',
    SETTINGS = 's',
    LIKE = 'l',
    NO_IDENTITY = 'n',
    FORCE = 'f',
    OUTPUT = 'o'
};

constexpr option OPTIONS[] = {{"json", no_argument, nullptr, JSON},
                              {"allow", required_argument, nullptr, ALLOW},
                              {"settings", no_argument, nullptr, SETTINGS},
                              {"like", required_argument, nullptr, LIKE},
                              {"no-identity", no_argument, nullptr, NO_IDENTITY},
                              {"force", no_argument, nullptr, FORCE},
                              {nullptr, 0, nullptr, 0}};

int runShow(const Arguments& arguments)
{
    return show(arguments.files[0], arguments.json);
}

int runCheck(const Arguments& arguments)
{
    return areComplaints(arguments.allowed) ? check(arguments.files, arguments.allowed)
                                            : STATUS_TROUBLE;
}

int runDiff(const Arguments& arguments)
{
    return diff(arguments.files[0], arguments.files[1], arguments.settings);
}

int runSource(const Arguments& arguments)
{
    return source(arguments.files[0]);
}

int runMake(const Arguments& arguments)
{
    return areComplaints(arguments.allowed)
               ? make(arguments.files[0], arguments.read.output, arguments.allowed)
               : STATUS_TROUBLE;
}

int runRead(const Arguments& arguments)
{
    return readChip(arguments.read);
}

constexpr struct Subcommand {
    const char* name;
    const char* options; ///< letters of those that it has
    std::size_t fewest;  ///< files
    std::size_t most;
    int (*run)(const Arguments& arguments);
} COMMANDS[] = {
    {"show", "j", 1, 1, runShow},  {"check", "a", 1, SIZE_MAX, runCheck},
    {"diff", "s", 2, 2, runDiff},  {"source", "", 1, 1, runSource},
    {"make", "ao", 1, 1, runMake}, {"read", "lnfo", 0, 0, runRead},
};

int refuse(const std::string& what)
{
    tell(what + " (see pmfile --help)");
    return STATUS_TROUBLE;
}

std::string optionName(int letter)
{
    for (const option& one : OPTIONS) {
        if (one.name != nullptr && one.val == letter) {
            return std::string("--") + one.name;
        }
    }
    return {'-', static_cast<char>(letter)};
}

/// Takes the options and files behind the command. False, with a message, if they don't fit it.
bool takeArguments(const Subcommand& command, int argc, char** argv, Arguments& arguments)
{
    opterr = 0;
    for (int letter = 0; (letter = getopt_long(argc, argv, ":o:", OPTIONS, nullptr)) != -1;) {
        if (letter == ':') {
            refuse("option '" + optionName(optopt) + "' needs a value");
            return false;
        }
        if (letter == '?' || std::strchr(command.options, letter) == nullptr) {
            const char* const last = argv[optind - 1];
            const bool isLong = std::strncmp(last, "--", 2) == 0;
            refuse(std::string(command.name) + " has no option '"
                   + (letter != '?' ? optionName(letter)
                      : isLong      ? last
                                    : std::string{'-', static_cast<char>(optopt)})
                   + "'");
            return false;
        }
        switch (letter) {
        case JSON:
            arguments.json = true;
            break;
        case ALLOW:
            arguments.allowed.emplace_back(optarg);
            break;
        case SETTINGS:
            arguments.settings = true;
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
    arguments.files.assign(argv + optind, argv + argc);
    if (arguments.files.size() < command.fewest || arguments.files.size() > command.most) {
        refuse(std::string(command.name)
               + (command.most == 0   ? " takes no file but those of its options"
                  : command.most == 1 ? " takes one file"
                  : command.most == 2 ? " takes two files"
                                      : " needs a file"));
        return false;
    }
    return true;
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
    return refuse(name.empty() ? "no command" : "no command is called '" + name + "'");
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
    // A reader that is gone and a file that may not grow make a write fail, and that is told.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::set_new_handler(endWithoutMemory);
    TraceObject trace("pmfile", TRACE_LEVEL);
    g_traceObject = &trace;
    const int status = run(argc, argv);
    g_traceObject = nullptr;
    return status;
}
