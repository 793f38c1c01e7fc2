// Whole runs of the tool on a virtual board.
#include <vector>

#include "boardRun.h"

namespace {

using RunTest = BoardRun;

const std::string NEW_ENOUGH = "Minimum HW version is OK to upgrade powermonitor.\n";
const std::string FACTORY_VERSION =
    "Get installed Power monitor version\nEEPROM version is v48.49\n";
const std::string NOT_UP_TO_DATE =
    "RAM registers are NOT up-to-date.\nEEPROM registers are NOT up-to-date.\n";
const std::string UP_TO_DATE = "RAM registers are up-to-date.\nEEPROM registers are up-to-date.\n";
const std::string START_UP = "S 74w 00 FF P\nS 74w 99 Sr 74r 4D P\nS 74w 9A Sr 74r 5A P\n"
                             "S 74w 9B Sr 74r 30 30 P\nS 74w 00 FF P\n"
                             "S 74w 9D Sr 74r 31 30 31 30 31 30 31 30 P\n";

std::string tooOld(const char* minimum, const char* board)
{
    return std::string("Minimum required HW version for updates is ") + minimum + "(hwver=" + board
           + "))\n";
}

TEST_F(RunTest, WhatIsSaidWhenNothingCanBeWritten)
{
    write("broken.hex", ":0100000000\n");
    write("empty.hex", "");
    const std::string refusal =
        "File 'broken.hex' is not a valid PM data file: line 1 ends before its checksum";
    const std::string errorSet =
        "err: [ERROR] max34460.cpp (setHwError) - Error set, m_hwErrorCount = 1\n";
    const std::string silent =
        "err: [ERROR] max34460.cpp (readGeneralInfo) - Page command failed\n" + errorSet;
    const std::string noFile =
        "err: [ERROR] CommandLine.cpp (CommandLine) - Missing 'PM data file' argument.\n";
    const std::string differs = "err: [ERROR] PowerFileHandler.cpp (compare) - "
                                "Data of command 42 differs (command index in file = 1)\n";
    const std::string unread = "err: [ERROR] PowerFileHandler.cpp (compare) - "
                               "Read/write failed for command 42 on page 0\n";
    const std::string fileVersion = FACTORY_VERSION + "New version is v1.0\n" + NOT_UP_TO_DATE;
    const std::string zeroVersion = "Get installed Power monitor version\nEEPROM version is v0.0\n";
    const struct {
        const char* options;
        const char* arguments;
        int status;
        std::string output;
        std::string errors; // its first lines
        std::string log;    // at the level of errors
    } cases[] = {
        {"", "-a", 0, "", "", ""},
        {"", "-v", 0, FACTORY_VERSION, "", ""},
        {"", "-m $EXAMPLES/small.hex", 0, NEW_ENOUGH, "", ""},
        {"", "-E $EXAMPLES/small.hex", 1, fileVersion, "", differs},
        {"", "-R $EXAMPLES/small.hex", 1, fileVersion, "", differs},
        {"", "-v $EXAMPLES/small.hex", 1, fileVersion, "", differs},
        {"--hw-version 0", "-m $EXAMPLES/small.hex", 1, "", tooOld("1", "0"), ""},
        {"--hw-version 2", "-r $EXAMPLES/board-a.hex", 1, "", tooOld("3", "2"), ""},
        {"--hw-version none", "-u $EXAMPLES/small.hex", 1, "", tooOld("1", "0"), ""},
        {"--hw-version -1", "-m /dev/null", 1, "", tooOld("0", "-1"), ""},
        {"--hw-version 3", "-u no.hex", 1, "", "*** File 'no.hex' not found. ***\n",
         "err: [ERROR] main.cpp (main) - File 'no.hex' not found.\n"},
        {"", "-u broken.hex", 1, "", "*** " + refusal + " ***\n",
         "err: [ERROR] main.cpp (main) - " + refusal + "\n"},
        {"", "-E /", 1, "", "", ""},
        {"", "-r /", 0, NEW_ENOUGH, "", ""},
        {"", "-E empty.hex", 1, "", "", ""},
        {"", "-u ''", 1, NEW_ENOUGH, "", "err: [ERROR] main.cpp (main) - Save/compare failed\n"},
        {"", "--", 1, "", "No option selects an action: give one of -v -m -R -E -r -e -a -u.\n",
         ""},
        {"", "", 1, "", "Usage: ", ""},
        {"", "-r", 1, "", "Usage: ", noFile},
        {"", "-v -a", 1, "", "Usage: ", noFile},
        {"", "-r -u -E -m a b c", 1, "", "Usage: ", ""},
        {"--fault absent", "-a", 1, "", "", silent},
        {"--fault absent", "-v", 0, zeroVersion, "", silent},
        {"--fault absent", "-E $EXAMPLES/small.hex", 1,
         zeroVersion + "New version is v1.0\n" + NOT_UP_TO_DATE, "",
         silent + unread + unread + differs},
        {"--fault open=ENOENT", "-a", 1, "", "",
         "err: [ERROR] max34460.cpp (Max34460) - Cannot open I2C driver /dev/i2c-0: No such file "
         "or directory\n"
             + errorSet},
        {"--fault busy", "-a", 1, "", "",
         "err: [ERROR] max34460.cpp (Max34460) - Cannot access I2C driver: Device or resource "
         "busy\n"
             + errorSet},
        {"--fault open=EINTR*3", "-a", 0, "", "", ""},
    };
    const auto before = memory();
    for (const auto& [options, arguments, status, output, errors, log] : cases) {
        const std::string name = std::string(options) + " " + arguments;
        const Outcome outcome =
            run("$PMADMIN " + std::string(arguments), std::string("--trace-level 3 ") + options);
        EXPECT_EQ(status, outcome.status) << name;
        EXPECT_EQ(output, outcome.output) << name;
        EXPECT_EQ(errors,
                  outcome.errors.substr(
                      0, std::max(errors.size(), errors == "Usage: " ? 0 : outcome.errors.size())))
            << name;
        EXPECT_EQ(log, outcome.log) << name;
        if (outcome.log.find("Save/compare") == std::string::npos) {
            EXPECT_EQ(before.flash, memory().flash) << name;
        }
    }
    // Reading has moved the selected page, nothing else.
    auto after = memory();
    *virtualboard::bytesOf(after.ram, virtualboard::code::PAGE, 0) = 0;
    EXPECT_EQ(before.ram, after.ram);
}

/// The bus lines of reading (R) or writing small.hex, its words in bus order.
std::string transfersOfSmallFile(bool reads)
{
    const struct {
        const char* head;
        const char* data;
    } registers[] = {
        {"00", "00"}, {"42", "28 32"}, {"43", "98 2B"}, {"60", "19 00"},
        {"00", "01"}, {"42", "E6 14"}, {"43", "2A 12"}, {"60", "4B 00"},
        {"00", "0D"}, {"51", "40 1F"}, {"00", "FF"},    {"9D", "00 01 01 00 00 00 00 00"},
    };
    std::string text;
    for (const auto& [code, data] : registers) {
        const bool isRead = reads && code != std::string("00");
        text += std::string("S 74w ") + code + (isRead ? " Sr 74r " : " ") + data + " P\n";
    }
    return text;
}

TEST_F(RunTest, AnUpgradeOnTheBus)
{
    const std::string differing =
        "S 74w 00 00 P\nS 74w 42 Sr 74r FF 7F P\nS 74w 42 Sr 74r FF 7F P\n";
    const Outcome first = run("$PMADMIN -u $EXAMPLES/small.hex", "--trace-level 6 --summary");
    EXPECT_EQ(START_UP + differing + transfersOfSmallFile(false) + "S 74w 11 P\n"
                  + transfersOfSmallFile(true),
              first.bus);
    EXPECT_EQ(0, first.status);
    EXPECT_EQ(NEW_ENOUGH + FACTORY_VERSION + "New version is v1.0\n" + NOT_UP_TO_DATE
                  + FACTORY_VERSION + "New version is v1.0\n" + UP_TO_DATE,
              first.output);
    EXPECT_EQ("virtual-board: 34 transfers, 0 failures, 153 bytes, 14.59 ms on a 100 kHz bus\n",
              first.errors);
    EXPECT_NE(
        std::string::npos,
        first.log.find("info: [INFO] main.cpp (main) - Power monitor successfully upgraded\n"));

    const Outcome second = run("$PMADMIN -u $EXAMPLES/small.hex", "--trace-level 4 --power-cycle");
    EXPECT_EQ(1, second.status);
    EXPECT_EQ("", second.log);
    EXPECT_EQ(START_UP.substr(0, START_UP.rfind("S 74w 9D"))
                  + "S 74w 9D Sr 74r 00 01 01 00 00 00 00 00 P\n" + transfersOfSmallFile(true),
              second.bus);
}

TEST_F(RunTest, TheLargeExampleSurvivesAPowerCycle)
{
    EXPECT_EQ(0, run("$PMADMIN -r $EXAMPLES/board-a.hex").status);
    EXPECT_EQ(0, run("$PMADMIN -E $EXAMPLES/board-a.hex").status);
    EXPECT_EQ(1, run("$PMADMIN -E $EXAMPLES/board-a.hex", "--power-cycle").status)
        << "not yet stored";
    EXPECT_EQ(0, run("$PMADMIN -u $EXAMPLES/board-a.hex").status);
    EXPECT_EQ(0, run("$PMADMIN -E $EXAMPLES/board-a.hex", "--power-cycle").status);
    const Outcome model57 = run("$PMADMIN -E $EXAMPLES/board-a.hex", "--model 0x57");
    EXPECT_EQ(0, model57.status);
    EXPECT_EQ(std::string::npos, model57.bus.find("S 74w EA"));
}

TEST_F(RunTest, ALockThatIsNeverGivenBackIsTakenOver)
{
    EXPECT_EQ("", run("$PMADMIN -a", "--trace-level 4").log);
    ASSERT_EQ(1, lockValue());
    setLockValue(0);
    const Outcome outcome = run("$PMADMIN -a", "--trace-level 4");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("err: [ERROR] pmMutexLock.cpp (PmMutexLock) - "
              "Semaphore locked a long time - continue without the lock\n",
              outcome.log);
    EXPECT_EQ(1, lockValue());
}

TEST_F(RunTest, TheExamplesAreWhatTheirListsGive)
{
    for (const char* name : {"board-a", "small"}) {
        const std::string base = std::string("$EXAMPLES/") + name;
        EXPECT_EQ(0,
                  run("$EXAMPLES/make-pm-file.py --verify " + base + ".settings " + base + ".hex")
                      .status);
    }
}

} // namespace
