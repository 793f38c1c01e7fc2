// pmstatus: are the supplies well that the power monitor guards, and would they be with a new file?
// One run reads the chip (readSupplies), judges what it read (judge, forecast) and tells it
// (report, and a file for each form).
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <random>

#include "commandLine.h"
#include "loadFile.h"
#include "messages.h"
#include "names.h"
#include "pmFile.h"
#include "report.h"
#include "signalsWait.h"
#include "standardStreams.h"
#include "text.h"
#include "trace.h"

namespace {

/// The exit status of a run that can't say how the supplies are; the others are those of State.
constexpr int STATUS_UNKNOWN = 3;

/// Of the board on which pmstatus runs.
constexpr const char* DEFAULT_NAMES = "/etc/pmfile/names";

constexpr double NANOSECONDS_A_SECOND = 1e9;

volatile std::sig_atomic_t g_isEnding = 0;

using Files = std::vector<std::unique_ptr<PmFile>>;

/// Tells why nothing can be said, in the forms that a program reads as well.
int tellUnknown(const Options& options, const std::string& why, const std::string& time = "")
{
    tell(why);
    if (options.form == Form::BRIEF) {
        print((time.empty() ? "" : time + " ") + "unknown: " + printable(why) + "\n");
    } else if (options.form == Form::PROMETHEUS) {
        print(prometheusUp(false));
    }
    std::fflush(stdout); // one line on standard error is enough, whether this fails or not
    return STATUS_UNKNOWN;
}

bool wantsColour()
{
    const char* const noColour = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (noColour == nullptr || *noColour == '\0');
}

/// The report in the form that was asked for, with a time that is not empty when it is repeated.
std::string reportText(const Options& options, const StatusReport& report, const std::string& time)
{
    switch (options.form) {
    case Form::BRIEF:
        return (time.empty() ? "" : time + " ") + report.summary() + "\n";
    case Form::JSON:
        return jsonReport(report, time) + "\n";
    case Form::PROMETHEUS:
        return prometheusReport(report);
    default:
        return (time.empty() ? "" : time + "\n") + textReport(report, wantsColour())
               + (time.empty() ? "" : "\n");
    }
}

/// What was asked for, with the files that it names.
struct Task {
    Options options;
    Files files;
};

/// Loads what the options name. False, with the reason, if that fails.
bool loadFiles(Task& task, std::string& error)
{
    const bool isDefault = !task.options.namesPath;
    const std::string path = task.options.namesPath.value_or(DEFAULT_NAMES);
    if ((!isDefault || access(DEFAULT_NAMES, F_OK) == 0) && !readNames(path, boardNames, error)) {
        return false;
    }
    for (const std::string& file : task.options.files) {
        task.files.push_back(loadFile(file, error));
        if (task.files.back() == nullptr) {
            return false;
        }
        for (const auto& [page, codes] : registersFor(*task.files.back())) {
            task.options.reading.besides[page].insert(codes.begin(), codes.end());
        }
    }
    return true;
}

/// Prints a report of what was read. Returns the exit status.
int tellReport(const Task& task, const ChipState& chip, const std::string& time)
{
    StatusReport report = makeReport(chip, task.options.all);
    if (!task.files.empty()) {
        std::ranges::transform(task.options.files, std::back_inserter(report.files), printable);
        report.forecast = forecast(chip, task.files);
    }
    print(reportText(task.options, report, time));
    return flushOutput() ? static_cast<int>(report.state()) : STATUS_UNKNOWN;
}

/// Clears what was shown, and tells what is latched again.
void clear(const Task& task, const ChipState& shown)
{
    std::string error;
    const auto chip = clearStatus(task.options.reading, shown, error);
    if (!chip) {
        tell(error);
        return;
    }
    const std::string lasting = latchedText(*chip);
    tell(lasting.empty() ? "CLEAR_FAULTS was sent; no status bit is left"
                         : "CLEAR_FAULTS was sent; what lasts is latched again: " + lasting);
}

int showOnce(const Task& task)
{
    std::string error;
    const auto chip = readSupplies(task.options.reading, error);
    if (!chip) {
        return tellUnknown(task.options, error);
    }
    const int status = tellReport(task, *chip, "");
    if (task.options.clear && status != STATUS_UNKNOWN) {
        clear(task, *chip);
    }
    return status;
}

/// Lets the time pass, but ends at a signal that `mask` lets through, also if that came before.
void pause(double seconds, const sigset_t& mask)
{
    const double whole = std::floor(std::max(seconds, 0.0));
    const timespec time = {
        static_cast<time_t>(whole),
        static_cast<long>((std::max(seconds, 0.0) - whole) * NANOSECONDS_A_SECOND)};
    ppoll(nullptr, 0, &time, &mask);
}

double secondsNow()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec)
           + static_cast<double>(now.tv_nsec) / NANOSECONDS_A_SECOND;
}

/// The first block at once, each other one at a random moment of its interval: whoever tries to get
/// the lock at regular times does not meet it each time.
int watch(const Task& task)
{
    handleEnding([](int) { g_isEnding = 1; }); // behind the block that is under way
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    const SignalsWait signalsWait; // for the pause
    std::minstd_rand generator(std::random_device{}());
    std::uniform_real_distribution<double> moment(0, *task.options.watchSeconds);
    double interval = secondsNow();
    int status = STATUS_UNKNOWN;
    do {
        std::string error;
        const auto chip = readSupplies(task.options.reading, error);
        status = chip ? tellReport(task, *chip, timeText())
                      : tellUnknown(task.options, error, timeText());
        // Intervals that have passed meanwhile are not made up for.
        interval = std::max(interval + *task.options.watchSeconds,
                            secondsNow() - *task.options.watchSeconds);
        if (std::ferror(stdout) != 0) {
            return STATUS_UNKNOWN; // whoever read it is gone
        }
        pause(interval + moment(generator) - secondsNow(), mask);
    } while (g_isEnding == 0);
    return status;
}

int run(int argc, char** argv)
{
    Task task;
    const std::string wrong = takeOptions(argc, argv, task.options);
    if (!wrong.empty()) {
        return tellUnknown(task.options, wrong + " (see pmstatus --help)");
    }
    if (task.options.help || task.options.version) {
        print(task.options.help ? HELP : "pmstatus " PMSTATUS_VERSION "\n");
        return flushOutput() ? 0 : STATUS_UNKNOWN;
    }
    std::string error;
    if (!loadFiles(task, error)) {
        return tellUnknown(task.options, error);
    }
    task.options.reading.releasesByPage = task.options.watchSeconds.has_value();
    return task.options.watchSeconds ? watch(task) : showOnce(task);
}

[[noreturn]] void endWithoutMemory()
{
    std::fputs("pmstatus: out of memory\n", stderr);
    std::_Exit(STATUS_UNKNOWN);
}

} // namespace

int main(int argc, char** argv)
{
    if (!openStandardStreams()) {
        return STATUS_UNKNOWN;
    }
    std::signal(SIGPIPE, SIG_IGN); // a write that fails is told as any other
    std::signal(SIGXFSZ, SIG_IGN);
    std::set_new_handler(endWithoutMemory);
    programName = "pmstatus";
    TraceObject trace("pmstatus", 0);
    g_traceObject = &trace;
    const int status = run(argc, argv);
    g_traceObject = nullptr;
    return status;
}
