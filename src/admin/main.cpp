// The entry of the tool: parses the command line, brings chip and PM data file together, runs the
// one action that the options select, and reports its result as the exit status.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "CommandLine.h"
#include "PowerFileHandler.h"
#include "PowerFileParser.h"
#include "log.h"
#include "standardStreams.h"
#include "trace.h"

namespace {

constexpr char TRACE_IDENTITY[] = "corvane";
constexpr int TRACE_LEVEL = 6; // errors, warnings and infos

/// The pause between writing the working registers and storing them in flash, in which the supplies
/// settle.
constexpr unsigned int SETTLE_TIME_S = 2;

// The functions here are steps of main and log in its name.

/// Fills the handler's lists and version record from the file. False, with a message, if the file
/// does not exist or is broken.
bool loadFile(const std::string& fileName, PowerFileParser& parser, PowerFileHandler& handler)
{
    if (access(fileName.c_str(), F_OK) != 0) {
        std::fprintf(stderr, "*** File '%s' not found. ***\n", fileName.c_str());
        LOG_AS("main", ERROR, "File '%s' not found.", fileName.c_str());
        return false;
    }
    parser.parseFile(fileName);
    if (!parser.getError().empty()) {
        std::fprintf(stderr, "*** File '%s' is not a valid PM data file: %s ***\n",
                     fileName.c_str(), parser.getError().c_str());
        LOG_AS("main", ERROR, "File '%s' is not a valid PM data file: %s", fileName.c_str(),
               parser.getError().c_str());
        return false;
    }
    const MfrDate fileMfrDate = parser.loadCommands(handler.getFileCommands());
    parser.loadCommands(handler.getTargetCommands());
    handler.setFileMfrDate(fileMfrDate);
    return true;
}

/// All steps of an upgrade. False if a step fails, and if the chip already holds the file: then
/// nothing is written.
bool upgrade(PowerFileHandler& handler)
{
    if (!handler.compareHwVersions() || handler.compare()) {
        return false;
    }
    if (!handler.writeCommands()) {
        LOG_AS("main", ERROR, "Write power file to RAM failed");
        return false;
    }
    sleep(SETTLE_TIME_S);
    if (!handler.save() || !handler.compare()) {
        LOG_AS("main", ERROR, "Save/compare failed");
        return false;
    }
    LOG_AS("main", INFO, "Power monitor successfully upgraded");
    return true;
}

/// Runs the action; false if it failed.
bool run(Action action, PowerFileHandler& handler)
{
    switch (action) {
    case Action::HwVersionCheck:
        return handler.compareHwVersions();
    case Action::PrintVersion:
        return handler.printInstalledVersion();
    case Action::AccessibilityCheck:
        return handler.isAccessible();
    case Action::FileVersionCheck:
        return handler.comparePowerFileVersions();
    case Action::Compare:
        return handler.compare();
    case Action::Write:
        return handler.compareHwVersions() && handler.writeCommands();
    case Action::Save:
        return handler.save();
    case Action::Upgrade:
        return upgrade(handler);
    case Action::None:
        break;
    }
    std::fprintf(stderr, "No option selects an action: give one of -v -m -R -E -r -e -a -u.\n");
    return false;
}

/// The last step on every way out: frees the trace object, whoever made it. Returns main's status.
int finish(bool ok)
{
    delete g_traceObject;
    g_traceObject = nullptr;
    return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char* argv[])
{
    if (!openStandardStreams()) {
        return finish(false);
    }
    // A reader that goes away must not end a run between writing and storing.
    std::signal(SIGPIPE, SIG_IGN);
    if (g_traceObject == nullptr) {
        g_traceObject = new TraceObject(TRACE_IDENTITY, TRACE_LEVEL);
    }
    // Line by line, also into a pipe: the output of an operation is written before it releases the
    // lock, and the output of a killed run shows how far it got.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    const CommandLine commandLine(argc, argv);
    bool ok = commandLine.isValid();
    if (ok) {
        PowerFileParser parser;
        PowerFileHandler handler;
        const std::string fileName = commandLine.getFileName();
        ok = (fileName.empty() || loadFile(fileName, parser, handler))
             && run(commandLine.getAction(), handler);
    }
    return finish(ok);
}
