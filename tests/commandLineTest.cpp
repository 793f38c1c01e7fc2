#include "CommandLine.h"

#include "fakeSystem.h"

namespace {

using CommandLineTest = SystemTest;

const std::string USAGE = "! Usage: ./pm [-v] [-m] [-R] [-E] [-r] [-e] [-a] [-u] [PM data file]\n"
                          "!   -v Power monitor version check\n"
                          "!   -m Minimum HW version check\n"
                          "!   -r Write content of PM data file to power monitor\n"
                          "!   -e Save content of PM data file to power monitor flash\n"
                          "!   -E or -R: Compare content of power monitor with PM data file\n"
                          "!   -a Power monitor accessibility check\n"
                          "!   -u Power monitor upgrade sequence: check versions, check content\n"
                          "!                                      write contents, save to flash\n"
                          "!   'PM data file' is optional for option 'a'.\n";
const std::string VALID = "true\n";
const std::string REFUSED = USAGE + "false\n";
const std::string MISSING = "ERROR CommandLine: Missing 'PM data file' argument.\n" + REFUSED;
const std::string NOT_REQUIRED = "INFO CommandLine: 'PM data file' argument not required.\n" + VALID;
const std::string UNKNOWN = "! ./pm: invalid option -- 'x'\n";

TEST_F(CommandLineTest, SelectsAnActionAndAFileOrShowsTheUsage)
{
    const std::tuple<std::vector<std::string>, Action, std::string, std::string> cases[] = {
        {{"-R", "f"}, Action::Compare, "f", VALID},
        {{"f", "-u"}, Action::Upgrade, "f", VALID},
        {{"-u", ""}, Action::Upgrade, "", VALID},
        {{"-v"}, Action::PrintVersion, "", VALID},
        {{"-v", "f"}, Action::Compare, "f", VALID},
        {{"f", "-v"}, Action::PrintVersion, "", NOT_REQUIRED},
        {{"-r", "-v"}, Action::PrintVersion, "", VALID},
        {{"-a", "f"}, Action::AccessibilityCheck, "", NOT_REQUIRED},
        {{"-r", "-a", "f"}, Action::AccessibilityCheck, "f", VALID},
        {{"f"}, Action::None, "", NOT_REQUIRED},
        {{"--", "-u"}, Action::None, "", NOT_REQUIRED},
        {{}, Action::None, "", REFUSED},
        {{"-r", "-a"}, Action::AccessibilityCheck, "", MISSING},
        {{"-v", "-a"}, Action::AccessibilityCheck, "", MISSING},
        {{"-x", "-u", "f"}, Action::Upgrade, "", UNKNOWN + REFUSED},
        {{"-u", "f", "g"}, Action::Upgrade, "", REFUSED},
        {{"-v", "f", "g"}, Action::PrintVersion, "", REFUSED},
    };
    for (const auto& row : cases) {
        const auto parse = [&row](int argc, char** argv) {
            const CommandLine commandLine(argc, argv);
            EXPECT_EQ(std::get<Action>(row), commandLine.getAction());
            EXPECT_EQ(std::get<2>(row), commandLine.getFileName());
            return commandLine.isValid();
        };
        EXPECT_EQ(std::get<3>(row), recordResult([&] { return callWith(std::get<0>(row), parse); }))
            << testing::PrintToString(std::get<0>(row));
    }
}

TEST_F(CommandLineTest, WithoutAnyArgumentThereIsNoProgramNameToRead)
{
    EXPECT_EQ("! pmadmin: started without any argument, not even a program name\nfalse\n",
              recordResult([] { return CommandLine(0, nullptr).isValid(); }));
}

} // namespace
