// main itself, compiled under another name, with the system calls replaced.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <vector>

#include "fakeSystem.h"

int pmadminMain(int argc, char* argv[]);

namespace {

class DriverTest : public SystemTest {
protected:
    DriverTest()
    {
        fakeSystem.bus = {0x4D, 0x5A, '0', '0', 1, 2, 0, 0, 0, 0, 0, 0};
        // On page 1 a delay of 0x1234 ms/5, in a file of version 2.1 for hardware 3.
        std::ofstream(m_file) << ":11000000"
                                 "010001"
                                 "02603412"
                                 "089D0102030000000000"
                                 "FF\n";
    }
    ~DriverTest() override { std::remove(m_file.c_str()); }

    /// Runs main; returns its transcript and status. NO_TRACE leaves it to main to
    /// make the trace object.
    std::string run(std::vector<std::string> arguments, int traceLevel = 6)
    {
        if (traceLevel != NO_TRACE) {
            g_traceObject = g_traceObject == nullptr ? new TraceObject("test", 0) : g_traceObject;
            setTraceLevel(traceLevel);
        }
        arguments.insert(arguments.begin(), "pm");
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        optind = 0;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = pmadminMain(static_cast<int>(arguments.size()), argv.data());
        EXPECT_EQ(nullptr, g_traceObject);
        m_output = testing::internal::GetCapturedStdout();
        m_errors = testing::internal::GetCapturedStderr();
        return transcript() + "status " + std::to_string(status);
    }

    /// What follows the start-up in a run's transcript.
    static std::string afterStart(const std::string& text)
    {
        const std::string startEnd = "semctl 42 0 GETVAL\nsemop 42: 0 +1 flags 2048, 1\n";
        const std::size_t at = text.find(startEnd);
        return at == std::string::npos ? text : text.substr(at + startEnd.size());
    }

    static constexpr int NO_TRACE = -1;
    const std::string m_file = testing::TempDir() + "driverTest." + std::to_string(getpid());
    std::string m_output;
    std::string m_errors;
};

const std::string LOCK = "semget 9f39b 1 7b6\nsemctl 42 0 SETVAL 1\nsemop 42: 0 -1 flags 2048, 1\n";
const std::string UNLOCK = "semctl 42 0 GETVAL\nsemop 42: 0 +1 flags 2048, 1\n";
const std::string NEW_ENOUGH =
    "<6>[INFO] PowerFileHandler.cpp (compareHwVersions) - HW version 3 >= minimum HW version 3\n";
const std::string TOO_OLD = "<4>[WARNING] PowerFileHandler.cpp (compareHwVersions) - HW version 2 "
                            "incompatible with minimum HW version 3 of the power file\n";
const std::string PAGE = "smbus 1000 write size 2: 00 01\n";
const std::string DELAY = "smbus 1000 read size 3: 60\n";
const std::string DATE = "rdwr 1000 74 flags 0 len 1: 9d 74 flags 1 len 8\n";
const std::string COMPARED =
    "<6>[INFO] PowerFileHandler.cpp (compare) - Power monitor file contents ";
const std::string WRITES =
    LOCK + PAGE
    + "smbus 1000 write size 3: 60 34 12\n"
      "smbus 1000 write size 6: 9d 01 02 03 00 00 00 00 00\n"
      "<6>[INFO] PowerFileHandler.cpp (writeCommands) - Writing power monitor file: success\n"
    + UNLOCK;
const std::string STORED = LOCK
                           + "smbus 1000 write size 1: 11\n<6>[INFO] PowerFileHandler.cpp (save) - "
                             "Storing power monitor file to flash: success\n"
                           + UNLOCK;

const std::string STORE_FAILED = "smbus 1000 write size 1: 11\nusleep 10000\n"
                                 "smbus 1000 write size 1: 11\nusleep 10000\n"
                                 "smbus 1000 write size 1: 11\nusleep 10000\n";

std::string differing(const char* data)
{
    const std::string prefix = "<6>[INFO] PowerFileHandler.cpp (compare) - ";
    const std::string attempt =
        DELAY + prefix + "Data of command 60 differs (command index in file = 1)\n" + prefix
        + "Target data: " + data + "\n" + prefix + "File data  : 1234\n";
    return LOCK + PAGE + attempt + attempt
           + "<3>[ERROR] PowerFileHandler.cpp (compare) - Data of command 60 differs (command "
             "index in file = 1)\n"
           + COMPARED + "differs from MAX34460 contents\n" + UNLOCK;
}

const std::string EQUAL =
    LOCK + PAGE + DELAY + DATE + COMPARED + "is equal to MAX34460 contents\n" + UNLOCK;
const std::initializer_list<std::uint8_t> EQUAL_DATA = {0x34, 0x12, 1, 2, 3, 0, 0, 0, 0, 0};

void onBus(std::initializer_list<std::uint8_t> bytes)
{
    fakeSystem.bus.insert(fakeSystem.bus.end(), bytes);
}

TEST_F(DriverTest, AnUpgrade)
{
    onBus({0, 0, 0, 0});
    onBus(EQUAL_DATA);
    EXPECT_EQ(
        NEW_ENOUGH + differing("0000") + WRITES + "sleep 2\n" + STORED + EQUAL
            + "<6>[INFO] main.cpp (main) - Power monitor successfully upgraded\nclose\nstatus 0",
        afterStart(run({"-u", m_file})));
    const std::string versions =
        "Get installed Power monitor version\nEEPROM version is v2.1\nNew version is v2.1\n";
    EXPECT_EQ("Minimum HW version is OK to upgrade powermonitor.\n" + versions
                  + "RAM registers are NOT up-to-date.\nEEPROM registers are NOT up-to-date.\n"
                  + versions + "RAM registers are up-to-date.\nEEPROM registers are up-to-date.\n",
              m_output);
}

TEST_F(DriverTest, OtherActions)
{
    const struct {
        std::vector<std::string> arguments;
        int hwVersion;
        std::string expected;
    } cases[] = {
        {{"-E", m_file}, 3, EQUAL + "close\nstatus 0"},
        {{"-r", m_file}, 3, NEW_ENOUGH + WRITES + "close\nstatus 0"},
        {{"-r", m_file}, 2, TOO_OLD + "close\nstatus 1"},
        {{"-u", m_file}, 2, TOO_OLD + "close\nstatus 1"},
        {{"-u", m_file}, 3, NEW_ENOUGH + EQUAL + "close\nstatus 1"},
        {{"-m", m_file}, 3, NEW_ENOUGH + "close\nstatus 0"},
        {{"-m", m_file}, 2, TOO_OLD + "close\nstatus 1"},
        {{"-e", m_file}, 2, STORED + "close\nstatus 0"},
        {{"-v"}, 3, "close\nstatus 0"},
        {{"-a"},
         3,
         "<6>[INFO] PowerFileHandler.cpp (isAccessible) - Power monitor accessible\nclose\nstatus "
         "0"},
        {{"--"}, 3, "close\nstatus 1"},
        {{"-u", m_file + ".not"},
         3,
         "<3>[ERROR] main.cpp (main) - File '" + m_file + ".not' not found.\nclose\nstatus 1"},
        {{"-e"},
         3,
         "<3>[ERROR] CommandLine.cpp (CommandLine) - Missing 'PM data file' argument.\nstatus 1"},
    };
    const std::deque<std::uint8_t> start = fakeSystem.bus;
    for (const auto& [arguments, hwVersion, expected] : cases) {
        fakeSystem.bus = start;
        onBus(EQUAL_DATA);
        fakeSystem.hwVersion = hwVersion;
        EXPECT_EQ(expected, afterStart(run(arguments))) << testing::PrintToString(arguments);
    }
}

TEST_F(DriverTest, FailedStepsEndAnUpgrade)
{
    const std::deque<int> start = {1000, 0, 0, 0, 0, 0, 0, 2, 42, 0, 0, 0, 0};
    const std::deque<int> differed = {42, 0, 0, 0, 0, 0, 0, 0};
    const std::deque<int> written = {42, 0, 0, 0, 0, 0, 0, 0};
    const std::deque<int> refused = {42, 0, 0, -EIO, -EIO, -EIO};
    const struct {
        std::vector<std::deque<int>> results;
        std::string end;
    } cases[] = {
        {{start, differed, refused},
         "smbus 1000 write size 6: 9d 01 02 03 00 00 00 00 00\n" + UNLOCK
             + "<3>[ERROR] main.cpp (main) - Write power file to RAM failed\nclose\nstatus 1"},
        {{start, differed, written, refused},
         UNLOCK + "sleep 2\n" + LOCK + STORE_FAILED + UNLOCK
             + "<3>[ERROR] main.cpp (main) - Save/compare failed\nclose\nstatus 1"},
        {{start, differed, written},
         UNLOCK + "sleep 2\n" + LOCK + "smbus 1000 write size 1: 11\n" + UNLOCK + LOCK + PAGE
             + DELAY + DELAY
             + "<3>[ERROR] PowerFileHandler.cpp (compare) - "
               "Data of command 60 differs (command index in file = 1)\n"
             + UNLOCK + "<3>[ERROR] main.cpp (main) - Save/compare failed\nclose\nstatus 1"},
    };
    const std::deque<std::uint8_t> startBus = fakeSystem.bus;
    for (const auto& [results, end] : cases) {
        fakeSystem.bus = startBus;
        for (const std::deque<int>& part : results) {
            fakeSystem.results.insert(fakeSystem.results.end(), part.begin(), part.end());
        }
        const std::string text = run({"-u", m_file}, 3);
        EXPECT_EQ(end, text.substr(text.size() - std::min(end.size(), text.size())));
        EXPECT_EQ(end.find("sleep"),
                  text.find("sleep") == std::string::npos ? text.npos : end.find("sleep"));
    }
}

TEST_F(DriverTest, AFileWithoutCommandsIsStoredButNotConfirmed)
{
    EXPECT_EQ(LOCK + UNLOCK + LOCK + UNLOCK + "sleep 2\n" + LOCK + "smbus 1000 write size 1: 11\n"
                  + UNLOCK + LOCK + UNLOCK
                  + "<3>[ERROR] main.cpp (main) - Save/compare failed\nclose\nstatus 1",
              afterStart(run({"-u", "/dev/null"}, 3)));
}

TEST_F(DriverTest, ABrokenFileIsNotUsed)
{
    std::ofstream(m_file, std::ios::app) << ":0100000000\n";
    const std::string message =
        m_file + "' is not a valid PM data file: line 2 ends before its checksum";
    EXPECT_EQ("<3>[ERROR] main.cpp (main) - File '" + message + "\nclose\nstatus 1",
              afterStart(run({"-r", m_file})));
    EXPECT_EQ("*** File '" + message + " ***\n", m_errors);
}

TEST_F(DriverTest, WithoutATraceObjectMainMakesOneWithInfos)
{
    delete g_traceObject;
    g_traceObject = nullptr;
    EXPECT_EQ(
        "<6>[INFO] PowerFileHandler.cpp (isAccessible) - Power monitor accessible\nclose\nstatus 0",
        afterStart(run({"-a"}, NO_TRACE)));
}

} // namespace
