// pmupgrade: the safe way to upgrade a power monitor as one command. It runs pmfile, pmstatus and
// pmadmin and goes by what they end with. An upgrade is told in upgrade.cpp from top to bottom, the
// way back in goBack.cpp; the steps of both are in run.cpp.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "commandLine.h"
#include "messages.h"
#include "run.h"
#include "runLock.h"
#include "signalsWait.h"
#include "standardStreams.h"
#include "textFile.h"

namespace {

int refuse(const std::string& why)
{
    tell(why);
    return static_cast<int>(End::REFUSED);
}

int work(const UpgradeOptions& options)
{
    std::string error;
    if (!takeRunLock(error)) {
        return refuse(error + "; nothing was written");
    }
    Run run(options);
    if (options.isReturn || readText(options.file, run.fileText, error)) {
        error = run.open();
    }
    if (!error.empty()) {
        return refuse(error + "; nothing was written");
    }
    const Outcome outcome = options.isReturn ? goBack(run) : upgrade(run);
    run.finish(outcome);
    return static_cast<int>(outcome.end);
}

[[noreturn]] void endWithoutMemory()
{
    std::fputs("pmupgrade: out of memory\n", stderr);
    std::_Exit(static_cast<int>(End::LOST));
}

} // namespace

int main(int argc, char** argv)
{
    if (!openStandardStreams()) {
        return static_cast<int>(End::REFUSED);
    }
    std::signal(SIGPIPE, SIG_IGN); // output that can't be written changes nothing
    std::signal(SIGXFSZ, SIG_IGN);
    std::set_new_handler(endWithoutMemory);
    programName = "pmupgrade";
    UpgradeOptions options;
    const std::string wrong = takeOptions(argc, argv, options);
    if (!wrong.empty()) {
        return refuse(wrong + " (see pmupgrade --help)");
    }
    if (options.help || options.version) {
        print(options.help ? HELP : "pmupgrade " PMUPGRADE_VERSION "\n");
        return flushOutput() ? 0 : static_cast<int>(End::REFUSED);
    }
    handleEnding([](int) { g_isInterrupted = 1; }); // before the first write
    return work(options);
}
