// What the tool's own parts cost, without a bus and without a process around them: transfers and
// gated-off log statements. measure.py reads the results as JSON.
#include <benchmark/benchmark.h>

#include <cstdlib>

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

} // namespace

BENCHMARK_MAIN();
