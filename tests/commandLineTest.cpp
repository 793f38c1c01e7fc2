#include "CommandLine.h"

#include <unistd.h>

#include <vector>

#include "fakeSystem.h"

namespace {

using CommandLineTest = SystemTest;

const std::string USAGE = "Usage: ./pm [-v] [-m] [-R] [-E] [-r] [-e] [-a] [-u] [PM data file]\n"
                          "  -v Power monitor version check\n"
                          "  -m Minimum HW version check\n"
                          "  -r Write content of PM data file to power monitor\n"
                          "  -e Save content of PM data file to power monitor flash\n"
                          "  -E or -R: Compare content of power monitor with PM data file\n"
                          "  -a Power monitor accessibility check\n"
                          "  -u Power monitor upgrade sequence: check versions, check content\n"
                          "                                     write contents, save to flash\n"
                          "  'PM data file' is optional for option 'a'.\n";
const std::string MISSING =
    "<3>[ERROR] CommandLine.cpp (CommandLine) - Missing 'PM data file' argument.\n";
const std::string NOT_REQUIRED =
    "<6>[INFO] CommandLine.cpp (CommandLine) - 'PM data file' argument not required.\n";

struct Parsed {
    bool valid;
    Action action;
    std::string fileName;
    std::string errorOutput;
    std::string output;
};

Parsed parse(std::vector<std::string> words)
{
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    optind = 0; // a new scan
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const CommandLine commandLine(static_cast<int>(words.size()), argv.data());
    return {commandLine.isValid(), commandLine.getAction(), commandLine.getFileName(),
            testing::internal::GetCapturedStderr(), testing::internal::GetCapturedStdout()};
}

TEST_F(CommandLineTest, ValidCommandLines)
{
    const struct {
        std::vector<std::string> arguments;
        Action action;
        std::string fileName;
        std::string log;
    } cases[] = {
        {{"-E", "f"}, Action::Compare, "f", ""},
        {{"-R", "f"}, Action::Compare, "f", ""},
        {{"-r", "f"}, Action::Write, "f", ""},
        {{"-e", "f"}, Action::Save, "f", ""},
        {{"-m", "f"}, Action::HwVersionCheck, "f", ""},
        {{"-u", "f"}, Action::Upgrade, "f", ""},
        {{"f", "-u"}, Action::Upgrade, "f", ""},
        {{"-v"}, Action::PrintVersion, "", ""},
        {{"-v", "f"}, Action::Compare, "f", ""},
        {{"f", "-v"}, Action::PrintVersion, "", NOT_REQUIRED},
        {{"-a"}, Action::AccessibilityCheck, "", ""},
        {{"-a", "f"}, Action::AccessibilityCheck, "", NOT_REQUIRED},
        {{"-r", "-a", "f"}, Action::AccessibilityCheck, "f", ""},
        {{"-r", "-v"}, Action::PrintVersion, "", ""},
        {{"-rv"}, Action::PrintVersion, "", ""},
        {{"-Eu", "f"}, Action::Upgrade, "f", ""},
        {{"-u", ""}, Action::Upgrade, "", ""},
        {{"f"}, Action::None, "", NOT_REQUIRED},
        {{"--", "-u"}, Action::None, "", NOT_REQUIRED},
    };
    for (const auto& [arguments, action, fileName, log] : cases) {
        std::vector<std::string> words = arguments;
        words.insert(words.begin(), "./pm");
        const Parsed parsed = parse(words);
        const std::string name = testing::PrintToString(arguments);
        EXPECT_TRUE(parsed.valid) << name;
        EXPECT_EQ(action, parsed.action) << name;
        EXPECT_EQ(fileName, parsed.fileName) << name;
        EXPECT_EQ("", parsed.errorOutput) << name;
        EXPECT_EQ(log, transcript()) << name;
    }
}

TEST_F(CommandLineTest, RefusedCommandLines)
{
    const std::string unknown = "./pm: invalid option -- 'x'\n";
    const struct {
        std::vector<std::string> arguments;
        Action action;
        std::string errorOutput;
        std::string log;
    } cases[] = {
        {{}, Action::None, USAGE, ""},
        {{"-E"}, Action::Compare, USAGE, MISSING},
        {{"-r", "-a"}, Action::AccessibilityCheck, USAGE, MISSING},
        {{"-v", "-a"}, Action::AccessibilityCheck, USAGE, MISSING},
        {{"-x", "-u", "f"}, Action::Upgrade, unknown + USAGE, ""},
        {{"-xx"}, Action::None, unknown + unknown + USAGE, ""},
        {{"-u", "-x"}, Action::Upgrade, unknown + USAGE, ""},
        {{"-u", "f", "g"}, Action::Upgrade, USAGE, ""},
        {{"-a", "f", "g"}, Action::AccessibilityCheck, USAGE, ""},
        {{"-v", "f", "g"}, Action::PrintVersion, USAGE, ""},
    };
    for (const auto& [arguments, action, errorOutput, log] : cases) {
        std::vector<std::string> words = arguments;
        words.insert(words.begin(), "./pm");
        const Parsed parsed = parse(words);
        const std::string name = testing::PrintToString(arguments);
        EXPECT_FALSE(parsed.valid) << name;
        EXPECT_EQ(action, parsed.action) << name;
        EXPECT_EQ("", parsed.fileName) << name;
        EXPECT_EQ(errorOutput, parsed.errorOutput) << name;
        EXPECT_EQ("", parsed.output) << name;
        EXPECT_EQ(log, transcript()) << name;
    }
}

TEST_F(CommandLineTest, WithoutAnyArgumentThereIsNoProgramNameToRead)
{
    testing::internal::CaptureStderr();
    const CommandLine commandLine(0, nullptr);
    EXPECT_FALSE(commandLine.isValid());
    EXPECT_EQ("pmadmin: started without any argument, not even a program name\n",
              testing::internal::GetCapturedStderr());
}

} // namespace
