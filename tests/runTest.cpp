// Whole runs of the tool on a virtual board, as the bus sees them.
#include "boardRun.h"

namespace {

using RunTest = BoardRun;

/// The bus lines of reading (R) or writing small.hex, its words in bus order.
std::string transfersOfSmallFile(bool reads)
{
    const std::pair<std::string, const char*> registers[] = {
        {"00", "00"}, {"42", "28 32"}, {"43", "98 2B"}, {"60", "19 00"},
        {"00", "01"}, {"42", "E6 14"}, {"43", "2A 12"}, {"60", "4B 00"},
        {"00", "0D"}, {"51", "40 1F"}, {"00", "FF"},    {"9D", "00 01 01 00 00 00 00 00"},
    };
    std::string text;
    for (const auto& [code, data] : registers) {
        text += "S 74w " + code + (reads && code != "00" ? " Sr 74r " : " ") + data + " P\n";
    }
    return text;
}

TEST_F(RunTest, AnUpgradeOnTheBus)
{
    const std::string startUp = "S 74w 00 FF P\nS 74w 99 Sr 74r 4D P\nS 74w 9A Sr 74r 5A P\n"
                                "S 74w 9B Sr 74r 30 30 P\nS 74w 00 FF P\nS 74w 9D Sr 74r ";
    const std::string differing = "S 74w 00 00 P\nS 74w 42 Sr 74r FF 7F P\nS 74w 42 Sr 74r FF 7F P\n";
    const std::string versions = "Get installed Power monitor version\nEEPROM version is v48.49\nNew version is v1.0\n";
    const Outcome first = run("$PMADMIN -u $EXAMPLES/small.hex", "--trace-level 3 --summary");
    EXPECT_EQ(startUp + "31 30 31 30 31 30 31 30 P\n" + differing + transfersOfSmallFile(false) + "S 74w 11 P\n"
                  + transfersOfSmallFile(true),
              first.bus);
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
    EXPECT_EQ(startUp + "00 01 01 00 00 00 00 00 P\n" + transfersOfSmallFile(true), second.bus);
}

TEST_F(RunTest, TheLargeExampleSurvivesAPowerCycleOnceItIsStored)
{
    const std::string compare = "$PMADMIN -E $EXAMPLES/board-a.hex";
    EXPECT_EQ(0, run("$PMADMIN -r $EXAMPLES/board-a.hex").status);
    EXPECT_EQ(0, run(compare).status);
    EXPECT_EQ(1, run(compare, "--power-cycle").status);
    EXPECT_EQ(0, run("$PMADMIN -u $EXAMPLES/board-a.hex").status);
    EXPECT_EQ(0, run(compare, "--power-cycle").status);
}

// What is closed becomes no bus, and a reader that has gone ends no run.
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

TEST_F(RunTest, TheExamplesAreWhatTheirListsGive)
{
    for (const std::string base : {"$EXAMPLES/board-a", "$EXAMPLES/small"}) {
        EXPECT_EQ(0, run("sh -c '$PMFILE make " + base + ".settings | cmp - " + base + ".hex'").status);
    }
}

} // namespace
