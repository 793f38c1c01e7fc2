// The virtual board itself: the chip, fault rules, what other programs see of the bus, its file, and the launcher.
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <regex>
#include <sstream>
#include <tuple>
#include <vector>

#include "board.h"
#include "boardRun.h"
#include "bus.h"
#include "i2cDevice.h"
#include "inputOptions.h"
#include "pmMutexLock.h"

/// Boards are made here as on a file system that has no hard links.
extern "C" int link(const char* /*from*/, const char* /*to*/) noexcept
{
    errno = EPERM;
    return -1;
}

namespace {

using namespace virtualboard;

/// Carries out one transfer: "42 FF 7F" is a write, "42 r2" a write followed by a read of two bytes, "42 c33" one
/// followed by a read of as many as the chip says, with room for 33. Returns the bytes read, "" if there are none, or
/// the errno's name.
std::string carryOut(Session& session, const std::string& story)
{
    std::uint8_t bytes[2][40] = {};
    i2c_msg messages[] = {{0x74, 0, 0, bytes[0]}, {0x74, I2C_M_RD, 0, bytes[1]}};
    std::istringstream words(story);
    for (std::string word; words >> word;) {
        if (word[0] == 'r' || word[0] == 'c') {
            messages[1].len = static_cast<__u16>(std::stoi(word.substr(1)));
            messages[1].flags = word[0] == 'c' ? I2C_M_RD | I2C_M_RECV_LEN : I2C_M_RD;
            bytes[1][0] = 1; // how many bytes there are besides those that the chip counts
        } else {
            bytes[0][messages[0].len++] = static_cast<__u8>(std::stoi(word, nullptr, 16));
        }
    }
    i2c_rdwr_ioctl_data request{messages, messages[1].len > 0 ? 2U : 1U};
    unsigned int address = 0;
    if (deviceRequest(std::bind_front(transfer, std::ref(session)), I2C_RDWR, &request, address) < 0) {
        return strerrorname_np(errno);
    }
    const bool counted = (messages[1].flags & I2C_M_RECV_LEN) != 0;
    std::string answer;
    for (int i = 0; i < (counted ? 1 + bytes[1][0] : messages[1].len); ++i) {
        answer += {"0123456789ABCDEF"[bytes[1][i] >> 4], "0123456789ABCDEF"[bytes[1][i] & 0xF]};
    }
    return answer;
}

class BoardTest : public BoardRun {
protected:
    BoardTest()
    {
        std::strcpy(m_session.board, path("board").c_str());
        std::strcpy(m_session.busLog, path("bus").c_str());
    }
    ~BoardTest() override { std::filesystem::remove_all(m_session.folder); }

    /// Carries out steps, separated by "; ": transfers, fault rules, supplies and sensors, "power-up", or "cml", which
    /// answers STATUS_CML and clears it. The answer to each follows after " = ".
    void tell(const std::string& story)
    {
        std::istringstream steps(story);
        for (std::string step; std::getline(steps >> std::ws, step, ';');) {
            const std::size_t sign = step.find(" = ");
            std::string answer;
            if (step.rfind("fault ", 0) == 0) {
                EXPECT_TRUE(parseFault(step.substr(6), m_session.faults[m_session.faultCount++], m_error)) << m_error;
            } else if (step[0] == 's' || step[0] == 'p') {
                setInput(step);
                continue;
            } else if (step.rfind("cml ", 0) == 0) {
                answer = carryOut(m_session, "7E r1");
                EXPECT_EQ(answer == "00" ? "0000" : "0200", carryOut(m_session, "79 r2"));
                carryOut(m_session, "03");
            } else {
                answer = carryOut(m_session, step.substr(0, sign));
            }
            EXPECT_EQ(sign == std::string::npos ? "" : step.substr(sign + 3), answer) << step << " in: " << story;
        }
    }

    void setInput(const std::string& step)
    {
        BoardAccess board(path("board").c_str());
        InputOption option;
        if (step == "power-up") {
            board.powerUp();
        } else {
            EXPECT_TRUE((step[1] == 'u' ? parseSupplyOption : parseSensorOption)(step.substr(7), option)) << step;
            EXPECT_TRUE(apply(option, board.supplies(), board.chip().ram, m_error)) << m_error;
        }
        EXPECT_TRUE(board.save());
    }

    std::string m_error;
    Session& m_session = *shareSession(Session(), m_error);
};

// Each line begins with factory settings and page 0, an indented one continues.
const char* const STORIES = R"(
98 r1 = 11; 99 r1 = 4D; 9A r1 = 5A; 9B r2 = 3030; 9C r8 = 3130313031303130; 02 r1 = 1A
8B r2 = E02E; D4 r2 = 1C2F; 00 0B; 8B r2 = 8403; D7 r2 = 8003; 00 11; 8D r2 = 420E; cml = 00
# What it doesn't know, on any page or on this one.
05 = EREMOTEIO; cml = 80; 00 FF; 42 r2 = EREMOTEIO; cml = 80; E0 r2 = 0100; 00 0B; cml = 00
51 00 00 = EREMOTEIO; E0 r2 = EREMOTEIO; 00 0D; 42 00 00 = EREMOTEIO; cml = 80
# Too few bytes, too many, and those of a read-only register.
42; 42 05; 9D 01; 42 r2 = FF7F; 43 r1 = 00; 9D r1 = 31; cml = 00
42 05 06 07; 42 r2 = FF7F; cml = 40; 03 07; cml = 40
99 4E = EREMOTEIO; 99 r1 = 4D; cml = 40; 79 00 00 = EREMOTEIO; cml = 40
# Reads beyond the data, of write-only commands, and of none.
43 r4 = 0000FFFF; cml = 40; 11 r1 = FF; cml = 40; 43 01 02 r2 = FFFF; cml = 40
05 = EREMOTEIO; 99 FF = EREMOTEIO; cml = C0; cml = 00
# Reads of as many bytes as the chip says, 1 to 32. There must be room for them all.
DD 03 02 01 04; DD c33 = 03020104; DD c32 = EINVAL; 9D c33 = EPROTO; D1 c33 = EPROTO; 9D 21 1 1 1 1 1 1 1; 9D c33 = EPROTO
9D 20 1 1 1 1 1 1 1; 9D c33 = 2001010101010101FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF; cml = 40
# Pages.
00 03; 00 0C; cml = 40; 00 12; cml = 40; 00 FE; cml = 40; 00 r1 = 03
00 05; D1 34 12; 00 0D; D1 r2 = 3412; 00 FF; D1 r2 = 3412; cml = 00
00 FF; 01 80; 01 r1 = FF; cml = 40; 00 04; 01 40; 00 0B; 01 r1 = 80; 00 00; 01 r1 = 80
# RAM and flash.
42 11 11; 12; 42 r2 = FF7F; 42 22 22; 11; 42 33 33; 12; 42 r2 = 2222
43 11 11; 00 0B; 43 22 22; FC 43 0B; FC r2 = 430B; 12; 43 r2 = 2222; 00 00; 43 r2 = 0000
FC 42 FF; cml = 40; FC 99 FF; cml = 40; FC 05 00; cml = 40; FC 42 0C; cml = 40
01 80; 11; 01 40; 00 01; 12; 00 r1 = 01; 00 00; 01 r1 = 40; cml = 00
# Write protection: all but this and PAGE and OPERATION and ON_OFF_CONFIG.
10 20; 00 01; 01 80; 02 1B; 42 11 11; 00 r1 = 01; 01 r1 = 80; 02 r1 = 1B; 42 r2 = FF7F; cml = 00
10 40; 00 01; 01 80; 02 1B; 42 11 11; 00 r1 = 01; 01 r1 = 80; 02 r1 = 1A; 42 r2 = FF7F; cml = 00
10 80; 00 01; 01 80; 02 1B; 42 11 11; 00 r1 = 00; 01 r1 = 00; 02 r1 = 1A; 42 r2 = FF7F; cml = 00
42 11 11; 10 80; 11; 10 00; 12; 42 r2 = FF7F; 42 22 22; 42 r2 = 2222
# Fault rules.
fault 2-3:nack; 42 r2 = FF7F; 42 11 11 = ENXIO; 42 r2 = ENXIO; 42 r2 = FF7F
fault 3-:timeout; 42 r2 = FF7F; 42 11 11; 42 r2 = ETIMEDOUT; 42 r2 = ETIMEDOUT
fault /2:eintr; 42 r2 = FF7F; 42 11 11 = EINTR; 42 r2 = FF7F; 11 = EINTR
fault code=42*2:nack; 43 r2 = 0000; 42 r2 = ENXIO; 42 r2 = ENXIO; 42 r2 = FF7F
fault code=42@1:nack; 42 r2 = FF7F; 00 01; 42 r2 = ENXIO; 43 r2 = 0000
fault store-silent=1; 11; 99 = ENXIO; 99 = ENXIO; 99 = ENXIO; 99 = ENXIO; 99 = ENXIO; 99 = ENXIO; 99 = ENXIO; 99 = ENXIO; 99
fault keep=42@1; 42 11 11; 42 r2 = 1111; 00 01; 42 11 11; 42 r2 = FF7F; 43 22 22; 43 r2 = 2222
fault stuck=42:F0FF=F034; 42 01 02; 42 r2 = 34F2; 43 r2 = 0000
# Supplies: what is read through the divider and the ratio, and on a new board.
supply 0=2.5; 8B r2 = C409; 2A FF 3F; 8B r2 = 8813; 2A 00 00; 8B r2 = FF7F; 2A 00 80; 8B r2 = 3CF6
 supply 0=12@0.1; 2A FF 7F; 8B r2 = B004; supply 0=40; 8B r2 = FF7F; supply 0=none; 8B r2 = E02E; D4 r2 = 1C2F
EA C4 09; 2A FF 3F; supply all=nominal; 8B r2 = C409; 2A FF 7F; 8B r2 = E204; 00 01; EA 01 00; 8B r2 = 8813
# A reading at a limit, beyond it, and status that is cleared and comes back.
supply 0=2.5; 40 C4 09; 7A r1 = 00; 40 C3 09; 7A r1 = 80; 79 r2 = 2080; 40 FF 7F; 7A r1 = 80; 03; 7A r1 = 00
 42 C3 09; 7A r1 = 40; 03; 7A r1 = 40; 79 r2 = 0080; 7E r1 = 00; 00 01; 7A r1 = 00
# Undervoltage counts once the supply has come up, until power-up.
supply 0=0; 44 E8 03; 43 DC 05; 11; 7A r1 = 00; supply 0=1; 98 r1 = 11; 7A r1 = 20; supply 0=none; supply 0=0.5
 98 r1 = 11; 7A r1 = 30; 79 r2 = 0080; power-up; 98 r1 = 11; 7A r1 = 00; 79 r2 = 0000; 8B r2 = F401
supply 0=2.5; 98 r1 = 11; 44 C5 09; 7A r1 = 10; D4 r2 = C409; D7 r2 = C409
# Peaks.
supply 0=2.5; supply 0=2.6; 98 r1 = 11; supply 0=2.4; 98 r1 = 11; D4 r2 = 280A; D7 r2 = 6009
 D4 00 00; D4 r2 = 6009; supply 0=2.6; D7 FF 7F; D7 r2 = 280A; supply 0=2.5; power-up; D4 r2 = C409; D7 r2 = C409
# Sensors.
sensor 0=30; 00 0D; 8D r2 = B80B; D6 r2 = B80B; 51 B8 0B; 4F B7 0B; 7D r1 = 80; 79 r2 = 0400; sensor 0=30.01; 98 r1 = 11
 7D r1 = C0; E3 r2 = B90B; sensor 0=faulty; 03; 7D r1 = 00; 8D r2 = FF7F; D6 r2 = B90B; sensor 0=disabled; 8D r2 = 0000
 51 FF FF; 7D r1 = 00; sensor 0=-1; D6 00 80; D6 r2 = 9CFF; sensor 0=faulty; power-up; 00 0D; D6 r2 = 0080; E3 r2 = 0000
sensor 4=85.5; 00 11; 8D r2 = 6621; sensor 4=none; 8D r2 = 420E; D6 r2 = 3C0F
# A rule's supply, and a chip that stores and doesn't watch meanwhile.
supply 0=2.5; fault 2-3:supply=0:3.1; 8B r2 = C409; 8B r2 = 1C0C; 8B r2 = 1C0C; 8B r2 = C409; D4 r2 = 1C0C
supply 0=2.5; fault store-silent=1; fault 3-8:supply=0:3.1; 11; 99 = ENXIO; 99 = ENXIO; 99 = ENXIO; 99 = ENXIO; 99 = ENXIO
 99 = ENXIO; 99 = ENXIO; 99 = ENXIO; D4 r2 = C409
fault 1-:supply=1:3.1; supply 0=2.5; 8B r2 = C409; 00 01; 8B r2 = 8813
)";

TEST_F(BoardTest, Stories)
{
    const Memory factory = memory();
    std::istringstream lines(STORIES + 1);
    for (std::string line; std::getline(lines, line);) {
        if (line[0] != ' ') {
            BoardAccess board(path("board").c_str());
            board.chip() = factory;
            board.supplies() = {};
            EXPECT_TRUE(board.save());
            m_session.transfers = 0;
            m_session.faultCount = 0;
            m_session.silentUntil = 0;
        }
        tell(line[0] == '#' ? "" : line);
    }
}

TEST_F(BoardTest, OtherProgramsOfTheBus)
{
    if (*EMULATOR != '\0' || access("/usr/sbin/i2cget", X_OK) != 0) {
        GTEST_SKIP() << "i2c-tools are not there";
    }
    const char* const cases[][2] = {
        {"i2cget -y 0 0x74 0x99", "0x4d\nS 74w 99 Sr 74r 4D P\n"},
        {"i2cget -y 0 0x74 0x8b w", "0x2ee0\nS 74w 8B Sr 74r E0 2E P\n"},
        {"i2cget -y 0 0x74 0x03 c", "0xff\nS 74w 03 P\nS 74r FF P\n"},
        {"i2cget -y 0 0x74 0x05", "S 74w 05 N P ! EREMOTEIO\n"},
        {"i2cset -y 0 0x74 0x99 7", "S 74w 99 07 N P ! EREMOTEIO\n"},
        {"i2cset -y 0 0x74 0x42 0x1234 w", "S 74w 42 34 12 P\n"},
        {"i2cset -y 0 0x74 0xdd 4 2 1 4 i", "S 74w DD 04 02 01 04 P\n"},
        {"i2cget -y 0 0x74 0xdd i 4", "0x04 0x02 0x01 0x04\nS 74w DD Sr 74r 04 02 01 04 P\n"},
        {"i2cget -y 0 0x74 0xdd s", "0x02 0x01 0x04 0xff\nS 74w DD Sr 74r 04 02 01 04 FF P\n"},
        {"i2cset -y 0 0x74 0xdd 2 1 4 s", "S 74w DD 03 02 01 04 P\n"},
        {"i2cget -y 0 0x74 0x9d s", "S 74w 9D Sr 74r 31 P ! EPROTO\n"},
        {"i2cget -y 0 0x74 0xd1 s", "S 74w D1 Sr 74r 00 P ! EPROTO\n"},
        {"i2ctransfer -y 0 w1@0x74 0xdd r?", "0x03 0x02 0x01 0x04\nS 74w DD Sr 74r 03 02 01 04 P\n"},
        {"i2ctransfer -y 0 w2@0x73 0x9d 1", "S 73w N P ! ENXIO\n"},
        {"i2ctransfer -y 0 w1@0x74 0x99 r1@0x73", "S 74w 99 Sr 73r N P ! ENXIO\n"},
        {"i2cget -y 1 0x74 0x99", ""},
    };
    for (const auto& [command, expected] : cases) {
        const Outcome outcome = run(std::string("/usr/sbin/") + command);
        EXPECT_EQ(expected, outcome.output + outcome.bus) << command << outcome.errors;
    }
    std::string found = run("/usr/sbin/i2cdetect -y 0").output;
    found.erase(0, found.find("\n00:"));
    EXPECT_NE(std::string::npos, found.find("\n70: -- -- -- -- 74 -- -- --"));
    EXPECT_EQ(111 * 2, std::count(found.begin(), found.end(), '-')) << found;
}

TEST_F(BoardTest, TheLauncher)
{
    const std::string rulesEnough = std::regex_replace(std::string(MAX_FAULTS, '.'), std::regex("."), "--fault busy ");
    const std::string number = " needs a number from -2147483648 to 2147483647, not ";
    const std::string deep =
        path(std::regex_replace(std::string(20, '.'), std::regex("."), std::string(195, 'd') + "/"));
    const std::string modeOnly = write("mode.hex", ":070000000100FF02D1200006\n:00000001FF\n");
    const std::tuple<std::string, std::string, int, std::string> cases[] = {
        {"--bord x", "true", 2, "invalid option '--bord' (see --help)"},
        {"--pid=3", "true", 2, "invalid option '--pid=3' (see --help)"},
        {"--board ''", "true", 2, "the name of a file is empty"},
        {"--log " + std::string(5000, 'x'), "true", 2,
         "this file name is too long: " + path("") + std::string(5000, 'x')},
        {"--board /no/b", "true", 2, "cannot make the board /no/b: No such file or directory"},
        {"--log /no/log", "true", 2, "cannot write /no/log: No such file or directory"},
        {"--bus-log ./board", "true", 2, "./board is the board, and can't be a log as well"},
        {"--remove", "true", 2, "--remove takes no command, and no option but --board"},
        {"", "$VIRTUAL_BOARD --remove", 2, "the board " + path("board") + " is in use"},
        {"", "sh -c '$VIRTUAL_BOARD --help >/dev/full'", 2, "cannot write to standard output: No space left on device"},
        {"--hw-version 3x", "true", 2, "--hw-version" + number + "'3x'"},
        {"--trace-level ''", "true", 2, "--trace-level" + number + "''"},
        {"--model 256", "true", 2, "--model needs a number from 0 to 255, not '256'"},
        {"--time-scale -1", "true", 2, "--time-scale needs a decimal number from 0 on, not '-1'"},
        {"--fault 1:nak", "true", 2,
         "--fault '1:nak': expected nack, arbitration, timeout, eintr, kill-before, kill-after, kill-run, power-off or "
         "supply= at 'nak' (see --help)"},
        {"--supply 0=1@0", "true", 2,
         "--supply '0=1@0': expected N=VOLTS, N=VOLTS@RATIO, N=none, all=nominal or all=none (see --help)"},
        {"--sensor 5=1", "true", 2, "--sensor '5=1': expected N=CELSIUS, N=faulty, N=disabled or N=none (see --help)"},
        {"--supply 3=2.5 --fault 1:supply=4:1 --fault 1:supply=3:1", "$PMADMIN -a", 0,
         "the fault '1:supply=4:1' never occurred"},
        {rulesEnough + "--fault busy", "true", 2, "more than 64 rules of --fault"},
        {"--fault keep=42@3 --fault 1:nack", "$PMADMIN -a", 0, "the fault 'keep=42@3' never occurred"},
        {"--help", "", 0, ""},
        {"--version", "", 0, ""},
        {"", "", 2, "no command to run (see --help)"},
        {"", "no-such", 127, "cannot run 'no-such': No such file or directory"},
        {"", "./board", 126, "cannot run './board': Permission denied"},
        {"", "sh -c 'kill -9 $$'", 128 + 9, ""},
        {"", "env --ignore-signal=CHLD $VIRTUAL_BOARD sh -c 'exit 4'", 4, ""},
        {"", "env TMPDIR=/no $VIRTUAL_BOARD true", 2, "cannot share the session in /no: No such file or directory"},
        {"", "env VIRTUAL_BOARD_SESSION=/no $PMADMIN -x", 1, "cannot use the session /no: No such file or directory"},
        {"--bus-log /dev/full", "$PMADMIN -a", 0, "cannot write /dev/full: No space left on device"},
        {"--fault busy", "$BUS_USER force", 0, ""},
        {"", "sh -c 'mkdir -p $0 && TMPDIR=$0 $VIRTUAL_BOARD true' " + deep, 2,
         "cannot share the session in " + deep + ": File name too long"},
        // What can't be saved was not done.
        {"", "sh -c 'trap \"\" XFSZ; ulimit -f 0; $PMADMIN -r " + modeOnly + "'", 1, ""},
        // A signal that ends the launcher reaches the command.
        {"", "sh -c 'trap \"exit 5\" TERM; kill $PPID; for i in $(seq 300000); do :; done'", 5, ""},
        {"", "sh -c 'trap \"exit 6\" HUP; kill -HUP $PPID; for i in $(seq 300000); do :; done'", 6, ""},
    };
    for (const auto& [options, command, status, reason] : cases) {
        const Outcome outcome = run(command, options);
        EXPECT_EQ(status, outcome.status) << options << command;
        EXPECT_EQ(reason.empty() ? "" : "virtual-board: " + reason + "\n", outcome.errors);
    }
    EXPECT_EQ(0, run("", "--version").output.find("virtual-board 1."));
    EXPECT_EQ(0, run("", "--help").output.find("Usage: virtual-board [OPTIONS]"));
    EXPECT_TRUE(std::regex_search(
        run("sh -c 'mkdir tmp; TMPDIR=tmp LD_PRELOAD=$LD_PRELOAD:libc.so.6 LD_LIBRARY_PATH=/no $VIRTUAL_BOARD "
            "printenv LD_PRELOAD LD_LIBRARY_PATH VIRTUAL_BOARD_SESSION'")
            .output,
        std::regex("^(/[^:]*)/libvirtualboard.so:libc.so.6\n\\1:/no\n" + path("tmp"))));
    EXPECT_TRUE(std::filesystem::is_empty(path("tmp"))) << "a session leaves nothing behind";
    EXPECT_NE("", run("sh -c 'cd /; $PMADMIN -a'").log) << "a relative log stays where it is";
}

TEST_F(BoardTest, AFaultKillsTheWholeRun)
{
    const char* const cases[][3] = {{"12:kill-run", "S 74w 42 E6 14 P ! SIGKILL\n", "2832"},
                                    {"12:power-off", "S 74w 42 E6 14 P ! power off\n", "FF7F"}};
    for (const auto& [rule, lastLine, limit] : cases) {
        const Outcome outcome = run("sh -c 'setsid sh -c \"while [ ! -e end ]; do :; done; touch late\" & "
                                    "$PMADMIN -r $EXAMPLES/small.hex; touch late'",
                                    std::string("--fault ") + rule);
        EXPECT_EQ(128 + 9, outcome.status) << outcome.errors;
        EXPECT_EQ(outcome.bus.size() - std::strlen(lastLine), outcome.bus.find(lastLine));
        tell(std::string("00 00; 42 r2 = ") + limit);
        write("end", "");
        usleep(50'000); // in which it would see that
        EXPECT_FALSE(std::filesystem::exists(path("late")));
        std::filesystem::remove(path("end"));
    }
}

TEST_F(BoardTest, AWrongRuleIsToldWithThePartThatIsWrong)
{
    const char* const cases[][2] = {
        {"nack", "a kind of fault, or a transfer's number, at 'nack'"},
        {"1", "':' at its end"},
        {"0:nack", "a kind of fault, or a transfer's number, at '0:nack'"},
        {"5-3:nack", "a transfer not before the first at '3:nack'"},
        {"1*0:nack", "how many times at '0:nack'"},
        {"/0:nack", "a number from 1 on at '0:nack'"},
        {"code=1FF:nack", "a command code, two hexadecimal digits, at '1FF:nack'"},
        {"code=0x42:nack", "a command code, two hexadecimal digits, at '0x42:nack'"},
        {"code=42@256:nack", "a page, 0 to 255, at '256:nack'"},
        {"stuck=42:0=1", "a mask, hexadecimal, at '0=1'"},
        {"stuck=42:1", "'=' at its end"},
        {"stuck=42:1=-1", "a value, hexadecimal, at '-1'"},
        {"keep=42x", "its end at 'x'"},
        {"open=ENOTHING*2", "an errno, such as EACCES, at 'ENOTHING*2'"},
        {"open=EINTR*x", "how many times at 'x'"},
        {"silent-after=-1", "a transfer's number at '-1'"},
        {"1:supply=12:1", "a supply, 0 to 11, at '12:1'"},
        {"1:supply=3:1001", "volts, 0 to 1000, at '1001'"},
        {"store-silent=0", "milliseconds from 1 on at '0'"},
    };
    for (const auto& [rule, expected] : cases) {
        Fault fault;
        EXPECT_FALSE(parseFault(rule, fault, m_error));
        EXPECT_EQ(std::string("expected ") + expected, m_error) << rule;
    }
    InputOption option;
    for (const char* text : {"", "0", "0=", "=1", "0=1x", "0=-1", "0=1001", "0=1@", "0=1@1.1", "all=1", "0=faulty"}) {
        EXPECT_FALSE(parseSupplyOption(text, option)) << text;
    }
    for (const char* text : {"", "0", "x=1", "0=", "0=327.67", "0=-327.68", "all=none"}) {
        EXPECT_FALSE(parseSensorOption(text, option)) << text;
    }
}

// In a folder with a space the loader finds the libraries by a link.
TEST_F(BoardTest, InAnyFolder)
{
    run("sh -c 'mkdir -p \"a b/bin\" \"c d\"; cp build/virtualboard/virtual-board \"a b/bin\"; cp -rL build/lib \"a "
        "b\"'");
    const std::string tool = EMULATOR " \"a b/bin/virtual-board\" --board board $PMADMIN -a'";
    EXPECT_EQ(0, run("sh -c '" + tool).status);
    EXPECT_EQ(0U, run("sh -c 'TMPDIR=\"c d\" " + tool)
                      .errors.find("virtual-board: cannot load from " + path("a b/lib/pmadmin") + ", nor through "
                                   + path("c d/virtual-board.")));
}

TEST_F(BoardTest, AProgramOnTheBus)
{
    const char* const cases[][4] = {
        {"copies $BUS_USER", "4d 4d 4d ffffffff ", "", ""},
        {"spellings", "1 1 1 0 0 1 0 1 ", "", ""},
        {"requests", "0 0 -1 -1 0 1 20 31 ff ", "", ""},
        {"handler", "200 ", "", ""},
        {"cancel", "4d ", "", ""},
        {"sleeps", "0 0 4 1 ", "", ""},
        {"log", "", "", "warning: yes#011#177\n"},
        {"print", "", "4d\nvirtual-board: the bus received 8 bytes without a request: 2A 2A 2A 20 46 69 6C 65\n", ""},
    };
    for (const auto& [story, output, errors, log] : cases) {
        const Outcome outcome = run(std::string("$BUS_USER ") + story, "--time-scale 0.002");
        EXPECT_EQ(output, outcome.output) << story;
        EXPECT_EQ(log, outcome.log) << story;
        EXPECT_EQ(errors, outcome.errors) << story;
        EXPECT_EQ(0, outcome.status) << story;
        EXPECT_EQ(errors[0] != '\0', outcome.bus.find("! 8 bytes without") != std::string::npos);
    }
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_LT(STDERR_FILENO, FileLock(path("board").c_str()).fd()) << "what is printed must not reach it";
    dup2(input, STDIN_FILENO);
    close(input);
}

TEST_F(BoardTest, TheFile)
{
    const std::string good = readFile(path("board"));
    std::string damaged = good;
    std::string newer = good;
    const Memory factory = memory();
    Memory changed = factory;
    *bytesOf(changed.ram, Page::CODE, 0) = 12;
    setMemory(changed);
    const std::string onNoPage = readFile(path("board"));
    setMemory(factory);
    ++damaged[100];
    ++newer[16];
    const std::string cases[][2] = {
        {"", "not a virtual board's memory"},
        {good + "x", "not a virtual board's memory"},
        {damaged, "a virtual board's memory, but damaged"},
        {newer, "a board's memory of another version of virtual-board"},
        {onNoPage, "a virtual board's memory, but damaged"},
    };
    for (const auto& [content, reason] : cases) {
        const std::string file = write("other", content);
        const Outcome outcome = run("true", "--board other --power-cycle --model 1");
        EXPECT_EQ(2, outcome.status);
        EXPECT_EQ("virtual-board: " + file + " is " + reason + "\n", outcome.errors);
        EXPECT_EQ(content, readFile(file));
    }

    // A board of before had no supplies.
    std::string old = good.substr(0, good.size() - sizeof(Supplies) - sizeof(NumberBytes));
    old[16] = 1;
    std::uint32_t sum = 2166136261U;
    for (const char byte : old) {
        sum = (sum ^ static_cast<std::uint8_t>(byte)) * 16777619U;
    }
    const NumberBytes checksum = toBytes(sum);
    write("old", old.append(checksum.begin(), checksum.end()));
    EXPECT_EQ(0, run("true", "--board old --supply 3=2.5").status);
    EXPECT_EQ(good.size(), readFile(path("old")).size());

    tell("01 80; 00 01; 42 11 11; D7 00 00; 11; 42 22 22; 05 = EREMOTEIO");
    EXPECT_EQ(0, run("", "--board second --model 0x57 --hw-version 7").status);
    EXPECT_EQ(0, run("true", "--power-cycle --hw-version none").status);
    EXPECT_EQ(0, run("", "--board second --power-cycle").status);
    tell("00 r1 = 00; 01 r1 = 00; 7E r1 = 00; 00 01; 42 r2 = 1111; D7 r2 = 6F13");
    BoardAccess first(path("board").c_str());
    BoardAccess second(path("second").c_str());
    int version = 0;
    EXPECT_FALSE(first.hardwareVersion(version));
    EXPECT_TRUE(second.hardwareVersion(version));
    EXPECT_EQ(7, version);
    EXPECT_EQ(0x57, *bytesOf(second.chip().ram, MfrModel::CODE, Command::ALL_PAGES));
    EXPECT_NE(first.privateKey(PM_MUTEX_KEY), second.privateKey(PM_MUTEX_KEY));
    EXPECT_NE(PM_MUTEX_KEY, first.privateKey(PM_MUTEX_KEY));
}

TEST_F(BoardTest, ARemovedBoardTakesItsLockWithIt)
{
    const std::string taken = "virtual-board: the lock of the board " + path("board")
                              + " is taken; if a killed run left it, 'pmadmin -a' on the board frees it\n";
    run("$PMADMIN -E $EXAMPLES/small.hex", "--fault 7:kill-after");
    EXPECT_EQ(taken, run("", "--remove").errors);
    run("$PMADMIN -a");
    const int set = lockSet();
    EXPECT_EQ(0, run("", "--remove").status);
    EXPECT_EQ(-1, semctl(set, 0, GETVAL));
    EXPECT_FALSE(std::filesystem::exists(path("board")));
    EXPECT_EQ(2, run("", "--remove").status);
}

TEST_F(BoardTest, SeveralProcessesAtOnce)
{
    for (const char* block : {"9D 1 1 1 1 1 1 1 1", "9D 2 2 2 2 2 2 2 2", "9D 3 3 3 3 3 3 3 3"}) {
        if (fork() == 0) {
            for (int i = 0; i < 100; ++i) {
                carryOut(m_session, block);
                carryOut(m_session, "9D r8");
            }
            _exit(0);
        }
    }
    while (wait(nullptr) > 0) {
    }
    std::istringstream lines(readFile(path("bus")));
    std::string written = " 31 30 31 30 31 30 31 30 P";
    std::uint64_t whole = 0;
    for (std::string line, data; std::getline(lines, line); written = data) {
        data = line.substr(line.size() - written.size());
        whole += line.find('r') == std::string::npos || data == written ? 1 : 0;
    }
    EXPECT_EQ(600U, whole);
    EXPECT_EQ(600U, m_session.transfers);
}

} // namespace
