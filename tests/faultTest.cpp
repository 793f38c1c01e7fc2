// Whole runs in which every transfer fails in its turn, and in which the process is killed at every transfer.
#include <regex>

#include "boardRun.h"

namespace {

using virtualboard::Memory;

/// Fail every STRIDE-th transfer.
constexpr int STRIDE = SLOW ? 7 : 1;

int count(const std::string& text, const std::string& part)
{
    int found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++found;
    }
    return found;
}

/// One command line on a board in a known state, and its outcome without a fault.
class FaultTest : public BoardRun, public testing::WithParamInterface<const char*> {
protected:
    FaultTest()
    {
        if (m_action == "-E") {
            run("$PMADMIN -u $EXAMPLES/small.hex");
        }
        m_start = memory();
        m_good = runAction("");
        m_transfers = count(m_good.bus, "\n");
        m_end = settings(memory());
    }

    Outcome runAction(const std::string& options) const
    {
        return run((m_reads ? "$PMFILE read --like" : "$PMADMIN " + m_action) + " $EXAMPLES/small.hex",
                   "--trace-level 6 " + options);
    }

    /// Flash holds all old or all new settings, and only registers of the file changed, though maybe to each other's
    /// values: if a PAGE entry could not be written, the values after it go to another page.
    void checkMemory(const std::string& name) const
    {
        const Memory now = settings(memory());
        const Memory start = settings(m_start);
        EXPECT_TRUE(now.flash == start.flash || now.flash == m_end.flash) << name;
        for (std::size_t i = 0; i < now.ram.size(); ++i) {
            EXPECT_TRUE(now.ram[i] == start.ram[i] || m_end.ram[i] != start.ram[i]) << name << ", byte " << i;
        }
    }

    /// The chip holds what a run without a fault leaves.
    void checkEnd(const std::string& name) const
    {
        EXPECT_EQ(m_end.ram, settings(memory()).ram) << name;
        EXPECT_EQ(m_end.flash, settings(memory()).flash) << name;
    }

    const std::string m_action = GetParam();
    const bool m_reads = m_action == "read";
    Memory m_start;
    Memory m_end;
    Outcome m_good;
    int m_transfers = 0;
};

TEST_P(FaultTest, ATransferThatFailsOnceOrTwiceChangesNothing)
{
    ASSERT_EQ(0, m_good.status);
    const char* const KINDS[][2] = {{"nack", "No such device or address"},
                                    {"arbitration", "Resource temporarily unavailable"},
                                    {"timeout", "Connection timed out"},
                                    {"eintr", "Interrupted system call"}};
    for (int n = 1; n <= m_transfers; n += STRIDE) {
        for (int times = 1; times <= 2; ++times) {
            const auto& [kind, error] = KINDS[(n + times) % 4];
            const std::string name = std::to_string(n) + "-" + std::to_string(n + times - 1) + ":" + kind;
            setMemory(m_start);
            const Outcome outcome = runAction("--fault " + name);
            EXPECT_EQ(0, outcome.status) << name;
            EXPECT_EQ(m_good.output, outcome.output) << name;
            EXPECT_EQ(m_good.bus, std::regex_replace(outcome.bus, std::regex(".* ! .*\n"), "")) << name;
            EXPECT_EQ(m_good.log, std::regex_replace(outcome.log, std::regex("warning: .*\n"), "")) << name;
            const bool tellsError = count(outcome.log, "Write command 11 ") == 0;
            EXPECT_EQ(tellsError ? times : 0, count(outcome.log, std::string(" failed, ") + error + "\n")) << name;
            EXPECT_EQ(2 * times, count(outcome.log, "warning: ")) << name;
            EXPECT_EQ(1, lockValue()) << name;
            checkEnd(name);
        }
    }
}

// The tool did what it reports: whatever fails for good, status 0 means that the chip holds the file, and any other
// outcome is reported.
TEST_P(FaultTest, ATransferThatFailsThreeTimesIsNeverConcealed)
{
    for (int n = 1; n <= m_transfers; n += STRIDE) {
        const std::string name = std::to_string(n) + "-" + std::to_string(n + 2) + ":nack";
        setMemory(m_start);
        const Outcome outcome = runAction("--fault " + name);
        checkMemory(name);
        EXPECT_LE(1, count(outcome.log, "retry 3\n")) << name;
        EXPECT_EQ(1, lockValue()) << name;
        if (m_reads) {
            EXPECT_EQ("2", std::to_string(outcome.status) + outcome.output) << name;
            EXPECT_EQ(1, count(outcome.errors, "; nothing was written\n")) << name;
            continue;
        }
        if (outcome.status == 0) {
            checkEnd(name);
            continue;
        }
        EXPECT_EQ(1, outcome.status) << name;
        EXPECT_LT(6, n) << name << ": a start-up that fails keeps nothing from being done";
        const char* const failure = m_action == "-r"   ? "Writing power monitor file: failed"
                                    : m_action == "-u" ? "[ERROR] main.cpp (main)"
                                                       : "contents differs from";
        EXPECT_EQ(1, count(outcome.log, failure)) << name << outcome.log;
        if (m_action == "-r") {
            EXPECT_LE(m_transfers + 2, count(outcome.bus, "\n")) << name << ": the others are made";
        }
        EXPECT_EQ(0, count(outcome.log, "successfully")) << name;
    }
}

TEST_P(FaultTest, AfterAKillTheNextRunsComplete)
{
    for (int n = 1; n <= m_transfers; n += STRIDE) {
        for (const char* when : {"before", "after"}) {
            const std::string name = std::to_string(n) + ":kill-" + when;
            setMemory(m_start);
            const Outcome killed = runAction("--fault " + name);
            EXPECT_EQ(128 + 9, killed.status) << name;
            EXPECT_EQ(1, count(killed.bus, " P ! SIGKILL\n")) << name;
            EXPECT_EQ(n > 6 && !m_reads, killed.output != "") << name << ": a line that is printed is out";
            checkMemory(name);
            const bool lockLeft = lockValue() == 0;
            // The start of pmadmin takes no lock; everything after it does.
            EXPECT_EQ(n > 6 || m_reads, lockLeft) << name;

            Outcome next = runAction("");
            EXPECT_EQ(lockLeft && !m_reads ? 1 : 0, count(next.log, "continue without the lock")) << name;
            EXPECT_EQ(1, lockValue()) << name;
            if (m_action == "-u" && next.status == 1) {
                // Killed between writing and storing: the working registers hold the file, and only storing is left.
                EXPECT_NE(std::string::npos, next.output.find("RAM registers are up-to-date")) << name;
                next = run("$PMADMIN -e $EXAMPLES/small.hex");
            }
            EXPECT_EQ(0, next.status) << name;
            EXPECT_TRUE(!m_reads || next.output == m_good.output) << name;
            checkEnd(name);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Actions, FaultTest, testing::Values("-u", "-r", "-E", "read"));

using LastingFaultTest = BoardRun;

TEST_F(LastingFaultTest, WhatTheOperatorSeesAndTheChipHolds)
{
    enum Holds { OLD, NEW, MIXED };
    const std::string writeFailed = "[ERROR] main.cpp (main) - Write power file to RAM failed";
    const std::string saveFailed = "[ERROR] main.cpp (main) - Save/compare failed";
    const std::string storeFailed = "Storing power monitor file to flash: failed";
    const std::string notOpened = "Cannot open I2C driver /dev/i2c-0: ";
    // Options, arguments, status, a part of what is printed or logged, working registers, flash.
    const std::tuple<const char*, const char*, int, std::string, Holds, Holds> cases[] = {
        {"--fault stuck=42@0:0001=0001", "-u small.hex", 1, saveFailed, NEW, NEW},
        {"--fault stuck=42@0:0001=0001", "-E small.hex", 1, "Target data: 7fff", OLD, OLD},
        {"--fault keep=42@0", "-u small.hex", 1, saveFailed, MIXED, MIXED},
        {"--fault keep=42@0", "-r small.hex", 0, "Writing power monitor file: success", MIXED, OLD},
        {"--fault store-silent=500", "-u small.hex", 1, saveFailed, NEW, NEW},
        {"--fault silent-after=15", "-u small.hex", 1, writeFailed, MIXED, OLD},
        {"--fault silent-after=21", "-u small.hex", 1, saveFailed, NEW, OLD},
        {"--fault silent-after=22", "-u small.hex", 1, saveFailed, NEW, NEW},
        {"--fault code=11:timeout", "-u small.hex", 1, saveFailed, NEW, OLD},
        {"--fault code=11:timeout", "-e small.hex", 1, storeFailed, OLD, OLD},
        {"--fault code=42@1:arbitration", "-u small.hex", 1, writeFailed, MIXED, OLD},
        {"--fault code=42@1:arbitration", "-E small.hex", 1, "Data of command 42 differs", OLD, OLD},
        {"--fault /2:nack", "-u small.hex", 0, "successfully upgraded", NEW, NEW},
        {"--fault absent", "-u small.hex", 1, writeFailed, OLD, OLD},
        {"--fault absent", "-E small.hex", 1, "Read/write failed for command 42 on page 0", OLD, OLD},
        {"--fault absent", "-a", 1, "(readGeneralInfo) - Page command failed", OLD, OLD},
        {"--fault absent", "-v", 0, "EEPROM version is v0.0", OLD, OLD},
        {"--fault busy", "-a", 1, "Cannot access I2C driver: Device or resource busy", OLD, OLD},
        {"--fault open=EACCES", "-u small.hex", 1, notOpened + "Permission denied", OLD, OLD},
        {"--fault open=EINTR*3", "-a", 0, "Power monitor accessible", OLD, OLD},
        {"", "-m \"$(printf 'a\\tb')\"", 1, "File 'a#011b' not found.", OLD, OLD},
        {"", "-E /", 1, "Target commands and file commands sizes are different or 0", OLD, OLD},
        {"", "-r /dev/null", 0, "Writing power monitor file: success", OLD, OLD},
        {"", "-u ''", 1, "Storing power monitor file to flash: success", OLD, OLD},
        {"--hw-version 0", "-u small.hex", 1, "updates is 1(hwver=0))", OLD, OLD},
    };
    write("small.hex", readFile(EXAMPLES "/small.hex"));
    const Memory start = memory();
    run("$PMADMIN -u small.hex");
    const Memory end = settings(memory());
    const auto holds = [&end, old = settings(start)](const virtualboard::Image& image) {
        return image == end.flash ? NEW : image == old.flash ? OLD : MIXED;
    };
    for (const auto& [options, arguments, status, shown, ram, flash] : cases) {
        const std::string name = std::string(options) + " " + arguments;
        setMemory(start);
        const Outcome outcome = run("$PMADMIN " + std::string(arguments), "--trace-level 6 " + std::string(options));
        EXPECT_EQ(status, outcome.status) << name;
        const std::string text = outcome.output + outcome.errors + outcome.log;
        EXPECT_NE(std::string::npos, text.find(shown)) << name << "\n" << text;
        EXPECT_EQ(ram, holds(settings(memory()).ram)) << name;
        EXPECT_EQ(flash, holds(settings(memory()).flash)) << name;
        EXPECT_EQ(1, lockValue()) << name;
    }
}

// The chip is silent for some of the virtual time, in which three attempts take 30 ms at any scale.
TEST_F(LastingFaultTest, AStoringChipAnswersInTime)
{
    for (const char* timeScale : {"0", "0.1"}) {
        EXPECT_EQ("0\n1\n0\n",
                  run("sh -c 'for option in \"-e $EXAMPLES/small.hex\" -a -a; do $PMADMIN $option; echo $?; done'",
                      std::string("--fault store-silent=45 --time-scale ") + timeScale)
                      .output);
    }
}

TEST_F(LastingFaultTest, AWriteProtectedChipKeepsWhatItHas)
{
    Memory start = memory();
    *virtualboard::bytesOf(start.ram, WriteProtect::CODE, 0) = 0x40;
    setMemory(start);
    EXPECT_EQ(1, run("$PMADMIN -u $EXAMPLES/small.hex").status);
    EXPECT_EQ(settings(start).ram, settings(memory()).ram);
    EXPECT_EQ(start.flash, memory().flash);
}

} // namespace
