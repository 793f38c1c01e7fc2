// Several runs of the tool at the same time on one board.
#include <map>
#include <sstream>

#include "boardRun.h"

namespace {

class ProcessesTest : public BoardRun {
protected:
    /// A run of the tool with launcher options of its own, for use in a command line
    /// of several. All write into one log.
    std::string tool(const std::string& options, const std::string& arguments) const
    {
        return EMULATOR " " VIRTUAL_BOARD " --board board --pid --log all --bus-log all " + options + " $PMADMIN "
               + arguments + " >/dev/null 2>&1";
    }
};

/// The transfers in a common log, without the process ids.
std::string busLines(const std::string& log)
{
    std::istringstream stream(log);
    std::string bus;
    for (std::string line; std::getline(stream, line);) {
        const std::size_t at = line.find("] S ");
        bus += at == std::string::npos ? "" : line.substr(at + 2) + "\n";
    }
    return bus;
}

/// Follows a common log of several runs, and reports every transfer that falls into
/// a section under the lock of another process. Start-up takes no lock and is free to
/// fall anywhere; and once somebody goes on without the lock, whose release frees the
/// lock of another, nothing is promised any more.
class Sections {
public:
    void follow(const std::string& line)
    {
        const std::string pid = line.substr(0, line.find(' '));
        if (line.find("continue without the lock") != std::string::npos) {
            lawless = true;
        } else if (line.find("acquired by PowerFileHandler::PowerFileHandler") != std::string::npos) {
            m_started[pid] = true;
        } else if (line.find(" acquired by ") != std::string::npos) {
            m_holder = pid;
            ++sections;
        } else if (line.find("Semaphore released by") != std::string::npos && m_holder == pid) {
            m_holder.clear();
        } else if (line.find("] S 74w") != std::string::npos && !lawless && m_started[pid] && !m_holder.empty()
                   && m_holder != pid) {
            cuts += line + " within " + m_holder + "\n";
        }
    }

    bool lawless = false;
    int sections = 0;
    std::string cuts;

private:
    std::string m_holder;
    std::map<std::string, bool> m_started;
};

TEST_F(ProcessesTest, TwentyAtOnceKeepTheirSectionsApart)
{
    std::string script = "for i in 1 2 3 4 5; do ";
    for (const char* action : {"-E", "-r", "-u", "-E"}) {
        script += "{ " + tool("--trace-level 7 --time-scale $0", std::string(action) + " $EXAMPLES/small.hex")
                  + "; echo $?; } & ";
    }
    // The lock's wait of 5 s is 200 ms and a locked section about 5 ms; on a busy machine
    // that may be too close, then 2 s.
    Sections found;
    for (const char* timeScale : {"0.04", "0.4"}) {
        std::remove(path("all").c_str());
        const Outcome outcome = run("sh -c '" + script + "done; wait' " + timeScale);
        EXPECT_EQ(40U, outcome.output.size()) << "twenty runs ended, each with one digit";
        EXPECT_EQ(std::string::npos, outcome.output.find_first_not_of("01\n")) << outcome.output;
        std::istringstream log(readFile(path("all")));
        found = Sections();
        for (std::string line; std::getline(log, line);) {
            found.follow(line);
        }
        EXPECT_EQ("", found.cuts);
        if (!found.lawless) {
            break;
        }
    }
    EXPECT_FALSE(found.lawless);
    EXPECT_LE(20, found.sections);
}

// What the lock does not promise: start-up selects PAGE 255 without it, between the
// PAGE entry of another run and the register that follows.
TEST_F(ProcessesTest, AStartUpWithinAnotherRunsSection)
{
    // Action, the entry that follows PAGE 3, status, its transfer after the start-up, its
    // code, and the low byte on pages 3 and 4 then.
    const std::tuple<const char*, std::string, int, std::string, int, std::uint8_t, std::uint8_t> cases[] = {
        // A channel's register isn't known on page 255: the run fails, nothing changes.
        {"-r", "02423412", 1, "S 74w 42 N P ! EREMOTEIO\n", 0x42, 0xFF, 0xFF},
        {"-E", "0242FF7F", 1, "S 74w 42 N P ! EREMOTEIO\n", 0x42, 0xFF, 0xFF},
        // A register of the device is the same on every page.
        {"-r", "02D13412", 0, "S 74w D1 34 12 P\n", 0xD1, 0x34, 0x34},
        // OPERATION on page 255 reaches all channels, and nothing tells.
        {"-r", "010180", 0, "S 74w 01 80 P\n", 0x01, 0x80, 0x80},
    };
    const auto start = memory();
    for (const auto& [action, entry, status, transfer, code, onPage3, onPage4] : cases) {
        const std::string data = "010003" + entry;
        write("file.hex", ":0" + std::to_string(data.size() / 2) + "000000" + data + "00\n");
        const std::string fault = "code=" + entry.substr(2, 2) + "*1:timeout";
        const std::string intrusion = " P ! ETIMEDOUT\nS 74w 00 FF P\nS 74w 99 P ! SIGKILL\n" + transfer;
        // A failed attempt makes the first run pause for 10 ms, stretched until the
        // start-up of the other fits into it even on a busy machine.
        Outcome outcome;
        std::string bus;
        for (const char* timeScale : {"8", "20", "50"}) {
            setMemory(start);
            std::remove(path("all").c_str());
            outcome = run("sh -c '{ "
                          + tool(std::string("--time-scale ") + timeScale + " --fault " + fault,
                                 std::string(action) + " file.hex")
                          + "; echo $?; } & while ! grep -q ETIMEDOUT all && kill -0 $!; do :; done; "
                          + tool("--fault 2:kill-before", "-v") + "; wait'");
            bus = busLines(readFile(path("all")));
            if (bus.find(intrusion) != std::string::npos) {
                break;
            }
        }
        EXPECT_NE(std::string::npos, bus.find(intrusion)) << bus;
        EXPECT_EQ(std::to_string(status) + "\n", outcome.output) << entry;
        auto now = memory();
        EXPECT_EQ(onPage3, *virtualboard::bytesOf(now.ram, code, 3)) << entry;
        EXPECT_EQ(onPage4, *virtualboard::bytesOf(now.ram, code, 4)) << entry;
        EXPECT_EQ(1, lockValue()) << entry;
    }
}

} // namespace
