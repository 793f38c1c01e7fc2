#include "commandLine.h"

#include <getopt.h>

#include <algorithm>

#include "longOptions.h"

const char* const HELP =
    R"(Usage: pmupgrade [--dry-run] [--keep DIR] [--allow NAME]... [--anyway]
                 [--no-return] FILE
       pmupgrade --return [RUN] [--dry-run] [--keep DIR]
       pmupgrade --help | --version

Upgrades the settings of a MAX34460 power monitor from a PM data file: checks,
backs up, writes, looks at the supplies, and only then stores. If anything
fails, the settings from before are written back.

  --dry-run     write nothing: end when all is known that can be known before
  --keep DIR    keep backups and reports in this folder
                (default: /var/lib/pmupgrade)
  --allow NAME  accept this problem that pmfile check finds; all: each but
                no-setting and access (repeatable)
  --anyway      go on although supplies have a fault, or would have one with
                FILE; these supplies judge nothing afterwards
  --no-return   do not write the settings from before back when something fails
  --return      write the settings from before an upgrade back, and store them:
                those of RUN, such as 0007, or of the last upgrade
  --help        show this text
  --version     show the version

The exit status is 0 if the chip holds FILE, 1 if the upgrade was refused and
nothing was written, 2 if it failed and the settings from before are back, and
3 if it failed and they are not. The last line says what to type next.
)";

namespace {

/// What getopt_long returns; no option has a letter.
enum Option {
    DRY_RUN = FIRST_LONG_OPTION,
    KEEP,
    ALLOW,
    ANYWAY,
    NO_RETURN,
    RETURN,
    HELP_TEXT,
    VERSION
};

constexpr option LONG_OPTIONS[] = {{"dry-run", no_argument, nullptr, DRY_RUN},
                                   {"keep", required_argument, nullptr, KEEP},
                                   {"allow", required_argument, nullptr, ALLOW},
                                   {"anyway", no_argument, nullptr, ANYWAY},
                                   {"no-return", no_argument, nullptr, NO_RETURN},
                                   {"return", no_argument, nullptr, RETURN},
                                   {"help", no_argument, nullptr, HELP_TEXT},
                                   {"version", no_argument, nullptr, VERSION},
                                   {nullptr, 0, nullptr, 0}};

/// OPERATION on page 255 reaches all twelve supplies, and what the chip refuses is never equal.
constexpr const char* NEVER_ALLOWED[] = {"no-setting", "access"};

std::string takeOption(int given, UpgradeOptions& options)
{
    switch (given) {
    case DRY_RUN:
        options.isDryRun = true;
        break;
    case KEEP:
        options.keep = optarg;
        return options.keep.empty() ? "--keep takes a folder" : "";
    case ALLOW:
        options.allowed.emplace_back(optarg);
        return std::ranges::count(NEVER_ALLOWED, options.allowed.back()) > 0
                   ? "the problem " + options.allowed.back() + " can't be allowed"
                   : "";
    case ANYWAY:
        options.isAnyway = true;
        break;
    case NO_RETURN:
        options.hasNoReturn = true;
        break;
    case RETURN:
        options.isReturn = true;
        break;
    case HELP_TEXT:
        options.help = true;
        break;
    default:
        options.version = true;
        break;
    }
    return "";
}

/// Takes what stands beside the options. Returns what is wrong with it.
std::string takeOperands(const std::vector<std::string>& operands, UpgradeOptions& options)
{
    if (options.isReturn) {
        if (options.isAnyway || options.hasNoReturn || !options.allowed.empty()) {
            return "--return can't be given with --allow, --anyway or --no-return";
        }
        if (!operands.empty()) {
            options.run = operands.front();
        }
        return operands.size() > 1 ? "--return takes one run" : "";
    }
    if (operands.size() != 1) {
        return operands.empty() ? "no file is given" : "one file can be given at a time";
    }
    options.file = operands.front();
    return options.file.empty() ? "the name of the file is empty" : "";
}

} // namespace

std::string takeOptions(int argc, char** argv, UpgradeOptions& options)
{
    opterr = 0;
    for (int given = 0; (given = getopt_long(argc, argv, ":", LONG_OPTIONS, nullptr)) != -1;) {
        std::string wrong = refusedOption(LONG_OPTIONS, given, argv[optind - 1]);
        wrong = wrong.empty() ? takeOption(given, options) : wrong;
        if (!wrong.empty()) {
            return wrong;
        }
    }
    if (options.help || options.version) {
        return "";
    }
    return takeOperands({argv + optind, argv + argc}, options);
}
