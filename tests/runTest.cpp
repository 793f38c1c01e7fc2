// Whole runs of the tool on a virtual board, one or several at a time, as the bus sees them.
#include <map>
#include <regex>
#include <sstream>

#include "boardRun.h"

namespace {

using RunTest = BoardRun;

// The bus lines of writing small.hex, and of reading the same.
const std::string WRITES = "S 74w 00 00 P\nS 74w 42 28 32 P\nS 74w 43 98 2B P\nS 74w 60 19 00 P\n"
                           "S 74w 00 01 P\nS 74w 42 E6 14 P\nS 74w 43 2A 12 P\nS 74w 60 4B 00 P\n"
                           "S 74w 00 0D P\nS 74w 51 40 1F P\nS 74w 00 FF P\nS 74w 9D 00 01 01 00 00 00 00 00 P\n";
const std::string READS = std::regex_replace(WRITES, std::regex("w ([4569].) "), "w $1 Sr 74r ");

TEST_F(RunTest, AnUpgradeOnTheBus)
{
    const std::string startUp = "S 74w 00 FF P\nS 74w 99 Sr 74r 4D P\nS 74w 9A Sr 74r 5A P\n"
                                "S 74w 9B Sr 74r 30 30 P\nS 74w 00 FF P\nS 74w 9D Sr 74r ";
    const std::string differing = "S 74w 00 00 P\nS 74w 42 Sr 74r FF 7F P\nS 74w 42 Sr 74r FF 7F P\n";
    const std::string versions = "Get installed Power monitor version\nEEPROM version is v48.49\nNew version is v1.0\n";
    const Outcome first = run("$PMADMIN -u $EXAMPLES/small.hex", "--trace-level 3 --summary");
    EXPECT_EQ(startUp + "31 30 31 30 31 30 31 30 P\n" + differing + WRITES + "S 74w 11 P\n" + READS, first.bus);
    EXPECT_EQ(0, first.status);
    EXPECT_EQ("Minimum HW version is OK to upgrade powermonitor.\n" + versions
                  + "RAM registers are NOT up-to-date.\nEEPROM registers are NOT up-to-date.\n" + versions
                  + "RAM registers are up-to-date.\nEEPROM registers are up-to-date.\n",
              first.output);
    EXPECT_EQ("virtual-board: 34 transfers, 0 failures, 153 bytes, 14.59 ms on a 100 kHz bus\n", first.errors);
    EXPECT_EQ("err: [ERROR] PowerFileHandler.cpp (compare) - "
              "Data of command 42 differs (command index in file = 1)\n",
              first.log);

    const Outcome second = run("$PMADMIN -u $EXAMPLES/small.hex", "--trace-level 4 --power-cycle");
    EXPECT_EQ(1, second.status);
    EXPECT_EQ("", second.log);
    EXPECT_EQ(startUp + "00 01 01 00 00 00 00 00 P\n" + READS, second.bus);
}

// A closed stream does not become the bus, and a reader that goes away ends no run.
TEST_F(RunTest, WithoutStreamsOrReaders)
{
    const std::string upgrade = "$PMADMIN -u $EXAMPLES/small.hex";
    const auto start = memory();
    const std::string bus = run(upgrade).bus;
    for (const char* streams : {">&-", "2>&-", "<&-", "<&- >&- 2>&-", ">&4"}) {
        setMemory(start);
        const Outcome outcome = run("sh -c 'mkfifo p; exec 3<>p 4>p 3>&-; $PMADMIN -v " + std::string(streams)
                                    + "; rm p; " + upgrade + " " + streams + "'");
        EXPECT_EQ(0, outcome.status) << streams;
        EXPECT_EQ(bus, outcome.bus.substr(outcome.bus.size() - bus.size())) << streams;
        EXPECT_EQ("", outcome.errors) << streams;
        EXPECT_EQ(1, lockValue()) << streams;
    }
    EXPECT_EQ("S 74w 9D Sr 74r 00 01 01 00 00 00 00 00 P\n",
              run("sh -c '$PMADMIN -m no.hex 2>&-'").bus.substr(bus.find("S 74w 9D")));
}

TEST_F(RunTest, RunsAtOnceKeepTheirSectionsApart)
{
    std::string script;
    for (const char* action : {"-E", "-r", "-u", "-E"}) {
        // The lock's wait of 5 s is 1 s, far longer than a section.
        script += "{ $VIRTUAL_BOARD --pid --log all --bus-log all --time-scale 0.2 --trace-level 3 $PMADMIN "
                  + std::string(action) + " $EXAMPLES/board-a.hex >/dev/null; echo $?; } & ";
    }
    const Outcome outcome = run("sh -c '" + script + "wait'");
    EXPECT_EQ(8U, outcome.output.size()) << "four runs ended, each with one digit";
    EXPECT_EQ(std::string::npos, outcome.output.find_first_not_of("01\n")) << outcome.output;

    // The start takes no lock. After it, processes take turns with whole sections: one for each run, and up to four
    // for the upgrade.
    constexpr int START_UP = 6;
    constexpr int SECTIONS = 7;
    std::map<std::string, int> transfers;
    std::string holder;
    int turns = 0;
    std::istringstream log(readFile(path("all")));
    for (std::string line; std::getline(log, line);) {
        const std::string process = line.substr(0, line.find("] S "));
        EXPECT_EQ(std::string::npos, line.find("without the lock"));
        if (process != line && ++transfers[process] > START_UP && process != holder) {
            holder = process;
            ++turns;
        }
    }
    EXPECT_EQ(4U, transfers.size());
    EXPECT_GE(SECTIONS, turns);
}

} // namespace
