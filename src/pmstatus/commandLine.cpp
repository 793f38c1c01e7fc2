#include "commandLine.h"

#include <getopt.h>

#include <string>
#include <string_view>

#include "longOptions.h"
#include "pages.h"
#include "selectedPage.h"
#include "text.h"

const char* const HELP =
    R"(Usage: pmstatus [--all] [--off LIST] [--bus N] [--names LIST] [--with FILE]...
                [--brief | --json | --prometheus] [--watch SECONDS] [--clear]
       pmstatus --help | --version

Shows whether the supplies and the temperature sensors are well that a MAX34460
power monitor watches. Reading changes nothing in the chip.

  --all            show every channel and sensor, also those that are not used
  --off LIST       expect these to be off, for example 3,7,sensor1
  --bus N          use /dev/i2c-N (default: 0)
  --names LIST     take the names of the supplies from this list
                   (default: /etc/pmfile/names, if it is there)
  --with FILE      show what the chip would report if it held this file; give it
                   twice for one file after the other
  --brief          print one line
  --json           print JSON
  --prometheus     print metrics for Prometheus
  --watch SECONDS  repeat once in each interval, until Ctrl-C
  --clear          clear the latched status when it has been shown
  --help           show this text
  --version        show the version

The exit status is 0 if all is good, 1 for a warning, 2 for a fault, and 3 if
that can't be told.
)";

namespace {

constexpr std::size_t MOST_FILES = 2;
constexpr unsigned int LONGEST_INTERVAL_S = 86400;

/// What getopt_long returns; no option has a letter.
enum Option {
    ALL = FIRST_LONG_OPTION,
    OFF,
    BUS,
    NAMES,
    WITH,
    BRIEF,
    JSON,
    PROMETHEUS,
    WATCH,
    CLEAR,
    HELP_TEXT,
    VERSION,
};

constexpr option LONG_OPTIONS[] = {{"all", no_argument, nullptr, ALL},
                                   {"off", required_argument, nullptr, OFF},
                                   {"bus", required_argument, nullptr, BUS},
                                   {"names", required_argument, nullptr, NAMES},
                                   {"with", required_argument, nullptr, WITH},
                                   {"brief", no_argument, nullptr, BRIEF},
                                   {"json", no_argument, nullptr, JSON},
                                   {"prometheus", no_argument, nullptr, PROMETHEUS},
                                   {"watch", required_argument, nullptr, WATCH},
                                   {"clear", no_argument, nullptr, CLEAR},
                                   {"help", no_argument, nullptr, HELP_TEXT},
                                   {"version", no_argument, nullptr, VERSION},
                                   {nullptr, 0, nullptr, 0}};

/// Takes "3,7,sensor1". False if something else stands there.
bool takePages(std::string_view list, std::set<int>& pages)
{
    constexpr std::string_view SENSOR = "sensor";
    for (bool isLast = false; !isLast;) {
        const std::size_t comma = list.find(',');
        isLast = comma == std::string_view::npos;
        std::string_view word = list.substr(0, comma);
        list.remove_prefix(isLast ? list.size() : comma + 1);
        const bool isSensor = word.starts_with(SENSOR);
        word.remove_prefix(isSensor ? SENSOR.size() : 0);
        const auto number = takeNumber(
            word, 0,
            static_cast<unsigned int>(isSensor ? Command::SENSORS : Command::CHANNELS) - 1);
        if (!number) {
            return false;
        }
        pages.insert(static_cast<int>(*number) + (isSensor ? Command::FIRST_SENSOR_PAGE : 0));
    }
    return true;
}

std::string takeForm(Options& options, Form form)
{
    const bool isOther = options.form != Form::TEXT && options.form != form;
    options.form = form;
    return isOther ? "only one of --brief, --json and --prometheus can be given" : "";
}

std::string takeOption(int given, Options& options)
{
    switch (given) {
    case ALL:
        options.all = true;
        return "";
    case OFF:
        return takePages(optarg, options.reading.expectedOff)
                   ? ""
                   : "--off takes channels 0 to 11 and sensors sensor0 to sensor4, for example "
                     "3,7,sensor1";
    case BUS:
        return takeBus(optarg, options.reading.bus);
    case NAMES:
        options.namesPath = optarg;
        return "";
    case WITH:
        options.files.emplace_back(optarg);
        return options.files.size() > MOST_FILES ? "--with can be given twice at most" : "";
    case BRIEF:
        return takeForm(options, Form::BRIEF);
    case JSON:
        return takeForm(options, Form::JSON);
    case PROMETHEUS:
        return takeForm(options, Form::PROMETHEUS);
    case WATCH:
        options.watchSeconds = takeNumber(optarg, 1, LONGEST_INTERVAL_S);
        return options.watchSeconds ? "" : "--watch takes a number of seconds, from 1 to 86400";
    case CLEAR:
        options.clear = true;
        return "";
    case HELP_TEXT:
        options.help = true;
        return "";
    default:
        options.version = true;
        return "";
    }
}

/// What is wrong with options that are right one by one.
std::string findConflict(const Options& options)
{
    if (options.watchSeconds
        && (options.form == Form::PROMETHEUS || !options.files.empty() || options.clear)) {
        return "--watch can't be given with --prometheus, --with or --clear";
    }
    return options.clear && !options.files.empty() ? "--clear can't be given with --with" : "";
}

} // namespace

std::string takeOptions(int argc, char** argv, Options& options)
{
    opterr = 0;
    std::string error;
    for (int given = 0; (given = getopt_long(argc, argv, ":", LONG_OPTIONS, nullptr)) != -1;) {
        std::string wrong = refusedOption(LONG_OPTIONS, given, argv[optind - 1]);
        wrong = wrong.empty() ? takeOption(given, options) : wrong;
        error = error.empty() ? wrong : error; // the form of what is told is that of all options
    }
    if (error.empty() && optind < argc) {
        error = std::string("expected options alone, not '") + argv[optind] + "'";
    }
    return error.empty() ? findConflict(options) : error;
}
