// What the tool's own parts cost, without a bus and without a process around them:
// transfers, gated-off log statements, and the reading of the PM data file that
// PM_DATA_FILE names. measure.py reads the results as JSON.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "PowerFileParser.h"
#include "command.h"
#include "log.h"

// Allocations are counted where operator new gets them too.
extern "C" void* __libc_malloc(std::size_t size);

namespace {
std::size_t g_allocations = 0;
}

extern "C" void* malloc(std::size_t size)
{
    ++g_allocations;
    return __libc_malloc(size);
}

// Stands before the C library's: every request succeeds at once.
extern "C" int ioctl(int /*fd*/, unsigned long /*request*/, ...) noexcept
{
    return 0;
}

namespace {

template <typename CommandClass, bool (Command::*TRANSFER)(int, std::uint8_t)>
void transfer(benchmark::State& state)
{
    constexpr int ANY_FD = 3;
    CommandClass object;
    Command* command = &object;
    benchmark::DoNotOptimize(command); // its class is not known, as in a list
    const std::size_t before = g_allocations;
    for (auto _ : state) {
        benchmark::DoNotOptimize((command->*TRANSFER)(ANY_FD, 0));
    }
    state.counters["allocations"] = static_cast<double>(g_allocations - before);
}

BENCHMARK(transfer<ClearFaults, &Command::write>)->Name("transfer/send byte");
BENCHMARK(transfer<OnOffConfig, &Command::read>)->Name("transfer/read byte");
BENCHMARK(transfer<OnOffConfig, &Command::write>)->Name("transfer/write byte");
BENCHMARK(transfer<VoutMarginHigh, &Command::read>)->Name("transfer/read word");
BENCHMARK(transfer<VoutMarginHigh, &Command::write>)->Name("transfer/write word");
BENCHMARK(transfer<MfrDate, &Command::read>)->Name("transfer/read block");
BENCHMARK(transfer<MfrDate, &Command::write>)->Name("transfer/write block");

// A loop with a statement that the level of the tool's runs keeps back, or without.
template <bool LOGS> void logStatement(benchmark::State& state)
{
    TraceObject trace("benchmarks", LOG_LEVEL_INFO.threshold);
    g_traceObject = &trace;
    for (auto _ : state) {
        if constexpr (LOGS) {
            LOG(DEBUG, "%d", std::rand());
        }
        benchmark::ClobberMemory();
    }
    g_traceObject = nullptr;
}

BENCHMARK(logStatement<false>)->Name("log/none");
BENCHMARK(logStatement<true>)->Name("log/gated off");

// The tool reads a file once. So each reading here begins with memory that is new, too.
void parseFile(benchmark::State& state, const std::string& path)
{
    for (auto _ : state) {
        {
            PowerFileParser parser;
            benchmark::DoNotOptimize(parser.parseFile(path));
        }
        state.PauseTiming();
        malloc_trim(0);
        state.ResumeTiming();
    }
}

// Without the deletion of the commands, which is the list's owner's.
void loadCommands(benchmark::State& state, const std::string& path)
{
    PowerFileParser parser;
    parser.parseFile(path);
    for (auto _ : state) {
        std::vector<Command*> list;
        benchmark::DoNotOptimize(parser.loadCommands(list));
        state.PauseTiming();
        for (const Command* command : list) {
            delete command;
        }
        list = {};
        malloc_trim(0);
        state.ResumeTiming();
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (const char* path = std::getenv("PM_DATA_FILE")) {
        benchmark::RegisterBenchmark("parseFile", parseFile, path);
        benchmark::RegisterBenchmark("loadCommands", loadCommands, path);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
