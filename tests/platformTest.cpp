// The stand-in for the board's utilities library, compiled here under another name (boardUtils is this name, too).
#include "boardUtils.h"

#include <fstream>

#include "fakeSystem.h"

namespace {

TEST(PlatformTest, TheHardwareVersionIsTheOneNumberOfAFile)
{
    const std::tuple<const char*, bool, int> cases[] = {
        {"7\n", true, 7}, {"-1", true, -1}, {"", false, 99}, {"seven\n", false, 99}, {"7\n8\n", false, 99}};
    for (const auto& [content, known, expected] : cases) {
        std::ofstream(BOARD_HW_VERSION_FILE) << content;
        int version = 99;
        EXPECT_EQ(known, boardUtils().getVersion(version) != 0) << content;
        EXPECT_EQ(expected, version) << content;
    }
    std::remove(BOARD_HW_VERSION_FILE);
    int version = 99;
    EXPECT_EQ(0, boardUtils().getVersion(version)) << "no file";
}

} // namespace
