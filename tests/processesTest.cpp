// Several runs of the tool at the same time on one board.
#include <map>
#include <sstream>

#include "boardRun.h"

namespace {

class ProcessesTest : public BoardRun {
protected:
    /// A run of the tool in the background, with launcher options of its own; its status is printed. All write into
    /// one log.
    static std::string tool(const std::string& options, const std::string& arguments)
    {
        return "{ " EMULATOR " " VIRTUAL_BOARD " --board board --pid --log all --bus-log all " + options + " $PMADMIN "
               + arguments + " >/dev/null; echo $?; } & ";
    }
};

TEST_F(ProcessesTest, RunsAtOnceKeepTheirSectionsApart)
{
    std::string script;
    for (const char* action : {"-E", "-r", "-u", "-E"}) {
        // The lock's wait of 5 s is 1 s, far longer than a section.
        script += tool("--time-scale 0.2 --trace-level 3", std::string(action) + " $EXAMPLES/board-a.hex");
    }
    const Outcome outcome = run("sh -c '" + script + "wait'");
    EXPECT_EQ(8U, outcome.output.size()) << "four runs ended, each with one digit";
    EXPECT_EQ(std::string::npos, outcome.output.find_first_not_of("01\n")) << outcome.output;

    // Start-up takes no lock. Behind it, processes take turns with whole sections: one for each run, and up to four
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

// What the lock does not promise: start-up selects PAGE 255 without it, between the PAGE entry of another run and the
// register that follows. OPERATION reaches all channels there, and nothing tells.
TEST_F(ProcessesTest, AStartUpWithinAnotherRunsSection)
{
    write("file.hex", ":06000000010003010180FF\n");
    // A failed attempt makes the first run pause for 10 ms, here 1 s, in which the other starts.
    EXPECT_EQ("137\n0\n",
              run("sh -c '" + tool("--time-scale 100 --fault code=01*1:timeout", "-r file.hex")
                  + "until grep -q ETIMEDOUT all; do :; done; " + tool("--fault 6:kill-after", "-v") + "wait'")
                  .output);
    auto now = memory();
    EXPECT_EQ(0x80, *virtualboard::bytesOf(now.ram, Operation::CODE, 3));
    EXPECT_EQ(0x80, *virtualboard::bytesOf(now.ram, Operation::CODE, 4));
}

} // namespace
