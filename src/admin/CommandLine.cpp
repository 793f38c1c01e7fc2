#include "CommandLine.h"

#include <unistd.h>

#include <cstdio>

#include "log.h"

CommandLine::CommandLine(int argc, char* const argv[])
    : m_programName("pmadmin"),
      m_action(Action::None),
      m_valid(false),
      m_options("REremvau")
{
    if (argc < 1) {
        std::fprintf(stderr, "%s: started without any argument, not even a program name\n",
                     m_programName.c_str());
        return;
    }
    m_programName = argv[0];
    m_valid = argc >= 2 && parse(argc, argv);
    if (!m_valid) {
        printUsage();
    }
}

// The rules of the constructor, in whose name it logs; false if one is broken.
bool CommandLine::parse(int argc, char* const argv[])
{
    bool fileRequired = false;
    if (!parseOptions(argc, argv, fileRequired)) {
        return false;
    }
    const int arguments = argc - optind;
    if (arguments > 1) {
        return false;
    }
    if (arguments == 0 && fileRequired) {
        LOG_AS("CommandLine", ERROR, "Missing 'PM data file' argument.");
        return false;
    }
    if (arguments == 1 && !fileRequired) {
        LOG_AS("CommandLine", INFO, "'PM data file' argument not required.");
    }
    if (fileRequired) {
        m_fileName = argv[optind];
    }
    return true;
}

// Sets the action, of the last option that selects one, and whether it requires a PM data file.
// False if an option is unknown; the options after it still count.
bool CommandLine::parseOptions(int argc, char* const argv[], bool& fileRequired)
{
    bool known = true;
    int option;
    while ((option = getopt(argc, argv, m_options.c_str())) != -1) {
        switch (option) {
        case 'R':
        case 'E':
            m_action = Action::Compare;
            fileRequired = true;
            break;
        case 'r':
            m_action = Action::Write;
            fileRequired = true;
            break;
        case 'e':
            m_action = Action::Save;
            fileRequired = true;
            break;
        case 'm':
            m_action = Action::HwVersionCheck;
            fileRequired = true;
            break;
        case 'v':
            // With exactly one argument after it, whatever that is: a version check against a
            // file.
            fileRequired = (argc == optind + 1);
            m_action = fileRequired ? Action::Compare : Action::PrintVersion;
            break;
        case 'a':
            // Leaves the need for a file as the options before it set it.
            m_action = Action::AccessibilityCheck;
            break;
        case 'u':
            m_action = Action::Upgrade;
            fileRequired = true;
            break;
        default:
            known = false; // getopt has printed a message
            break;
        }
    }
    return known;
}

void CommandLine::printUsage() const
{
    std::fprintf(stderr,
                 "Usage: %s [-v] [-m] [-R] [-E] [-r] [-e] [-a] [-u] [PM data file]\n"
                 "  -v Power monitor version check\n"
                 "  -m Minimum HW version check\n"
                 "  -r Write content of PM data file to power monitor\n"
                 "  -e Save content of PM data file to power monitor flash\n"
                 "  -E or -R: Compare content of power monitor with PM data file\n"
                 "  -a Power monitor accessibility check\n"
                 "  -u Power monitor upgrade sequence: check versions, check content\n"
                 "                                     write contents, save to flash\n"
                 "  'PM data file' is optional for option 'a'.\n",
                 m_programName.c_str());
}
