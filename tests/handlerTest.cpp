#include "PowerFileHandler.h"

#include <cerrno>
#include <sstream>

#include "fakeSystem.h"

namespace {

struct Handler : PowerFileHandler {
    using PowerFileHandler::isComparable;
    using PowerFileHandler::isSkippedCommand;
    using PowerFileHandler::m_mfrModel;

    /// Adds the same command to both lists, with data in bus order.
    void add(unsigned int code, std::vector<std::uint8_t> data)
    {
        data.resize(255);
        for (auto* list : {&getFileCommands(), &getTargetCommands()}) {
            list->push_back(Command::create(code));
            list->back()->setData(data.data());
        }
    }
};

class HandlerTest : public SystemTest {
protected:
    HandlerTest() { fakeSystem.bus = {0x4D, 0x5A, '0', '0', 1, 2, 0, 0, 0, 0, 0, 0}; }

    /// Calls an operation and returns what it did: transcript, output and result.
    template <class Operation> std::string run(Handler& handler, Operation operation, int level)
    {
        setTraceLevel(level);
        transcript();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const bool ok = (handler.*operation)();
        return transcript() + testing::internal::GetCapturedStdout()
               + testing::internal::GetCapturedStderr() + (ok ? "true" : "false");
    }

    static MfrDate record(std::uint8_t minor, std::uint8_t major, std::uint8_t minimum)
    {
        const std::uint8_t bytes[8] = {minor, major, minimum};
        MfrDate mfrDate;
        mfrDate.setData(bytes);
        return mfrDate;
    }
};

TEST_F(HandlerTest, BuildingItTakesTheLockAfterTheChipIsIdentified)
{
    {
        Handler handler;
        handler.add(MfrDate::CODE, {});
        handler.getFileCommands().push_back(nullptr);
    }
    const std::string text = transcript();
    const char* const ORDER[] = {
        "open /dev/i2c-0 flags 2",
        "ioctl 1000 703 0x74",
        "State changed",
        "semget",
        "acquired by PowerFileHandler::PowerFileHandler",
        "released by PowerFileHandler::PowerFileHandler",
        "PowerFileHandler.cpp (clear) - \n<7>[DEBUG] PowerFileHandler.cpp (clear) - \n"
        "close\n"};
    std::size_t at = 0;
    for (const char* step : ORDER) {
        at = text.find(step, at);
        ASSERT_NE(std::string::npos, at) << step << " in\n" << text;
    }
}

TEST_F(HandlerTest, HardwareVersions)
{
    const struct {
        int board;
        std::uint8_t minimum;
        std::string expected;
    } cases[] = {
        {3, 3,
         "<6>[INFO] PowerFileHandler.cpp (compareHwVersions) - HW version 3 >= minimum HW version "
         "3\n"
         "Minimum HW version is OK to upgrade powermonitor.\ntrue"},
        {0, 0,
         "<6>[INFO] PowerFileHandler.cpp (compareHwVersions) - HW version 0 >= minimum HW version "
         "0\n"
         "Minimum HW version is OK to upgrade powermonitor.\ntrue"},
        {3, 200,
         "<4>[WARNING] PowerFileHandler.cpp (compareHwVersions) - "
         "HW version 3 incompatible with minimum HW version 200 of the power file\n"
         "Minimum required HW version for updates is 200(hwver=3))\nfalse"},
        {-1, 0,
         "<4>[WARNING] PowerFileHandler.cpp (compareHwVersions) - "
         "HW version 0 incompatible with minimum HW version 0 of the power file\n"
         "Minimum required HW version for updates is 0(hwver=0))\nfalse"},
    };
    Handler handler;
    for (const auto& [board, minimum, expected] : cases) {
        fakeSystem.hwVersion = board;
        handler.setFileMfrDate(record(0, 0, minimum));
        EXPECT_EQ(expected, run(handler, &PowerFileHandler::compareHwVersions, 9));
    }
}

TEST_F(HandlerTest, FileVersions)
{
    Handler handler; // with version 2.1 installed
    const auto differ = [](const char* version) {
        return "<4>[WARNING] PowerFileHandler.cpp (comparePowerFileVersions) - Versions differ : "
               "file version "
               + std::string(version) + " <-> Target version 2.1\nfalse";
    };
    const std::tuple<int, int, std::string> cases[] = {
        {2, 1,
         "<6>[INFO] PowerFileHandler.cpp (comparePowerFileVersions) - Versions equal: version "
         "2.1\ntrue"},
        {2, 0, differ("2.0")},
        {3, 1, differ("3.1")},
        {2, 2, differ("2.2")},
    };
    for (const auto& [major, minor, expected] : cases) {
        handler.setFileMfrDate(
            record(static_cast<std::uint8_t>(minor), static_cast<std::uint8_t>(major), 0));
        EXPECT_EQ(expected, run(handler, &PowerFileHandler::comparePowerFileVersions, 9));
    }
    EXPECT_EQ("Get installed Power monitor version\nEEPROM version is v2.1\ntrue",
              run(handler, &PowerFileHandler::printInstalledVersion, 9));
}

TEST_F(HandlerTest, Accessibility)
{
    Handler handler;
    fakeSystem.results = {-ENOENT};
    Handler broken;
    EXPECT_EQ("<6>[INFO] PowerFileHandler.cpp (isAccessible) - Power monitor accessible\ntrue",
              run(handler, &PowerFileHandler::isAccessible, 6));
    EXPECT_EQ("<6>[INFO] PowerFileHandler.cpp (isAccessible) - Power monitor not accessible\nfalse",
              run(broken, &PowerFileHandler::isAccessible, 6));
}

const std::string VERSIONS =
    "Get installed Power monitor version\nEEPROM version is v2.1\nNew version is v0.0\n";
const std::string LOCK = "semget 9f39b 1 7b6\nsemctl 42 0 SETVAL 1\nsemop 42: 0 -1 flags 2048, 1\n";
const std::string UNLOCK = "semctl 42 0 GETVAL\nsemop 42: 0 +1 flags 2048, 1\n";

TEST_F(HandlerTest, CompareOfEqualContents)
{
    Handler handler;
    handler.add(MfrMode::CODE, {0x34, 0x12}); // before any page
    handler.add(Page::CODE, {13});
    handler.add(StoreDefaultAll::CODE, {});
    handler.add(ClearFaults::CODE, {});
    handler.add(RestoreDefaultAll::CODE, {});
    handler.add(OTWarnLimit::CODE, {1, 2});
    fakeSystem.bus = {0x34, 0x12, 1, 2};
    const auto dlog = [](const std::string& text) {
        return "<7>[DEBUG] PowerFileHandler.cpp (compare) - " + text + "\n";
    };
    const std::string equality =
        "<7>[DEBUG] command.cpp (operator==) - \n<7>[DEBUG] command.cpp (compare) - \n";
    EXPECT_EQ(LOCK
                  + "<7>[DEBUG] pmMutexLock.cpp (PmMutexLock) - Semaphore acquired by "
                    "PowerFileHandler::compare\n"
                  + dlog("Read command d1 (try 2 times)") + "smbus 1000 read size 3: d1\n"
                  + equality + dlog("Data of command d1 equal") + "smbus 1000 write size 2: 00 0d\n"
                  + dlog("Write page 13") + dlog("Read command 51 (try 2 times)")
                  + "smbus 1000 read size 3: 51\n" + equality + dlog("Data of command 51 equal")
                  + "<6>[INFO] PowerFileHandler.cpp (compare) - "
                    "Power monitor file contents is equal to MAX34460 contents\n"
                  + UNLOCK
                  + "<7>[DEBUG] pmMutexLock.cpp (~PmMutexLock) - Semaphore released by "
                    "PowerFileHandler::compare\n"
                  + VERSIONS
                  + "RAM registers are up-to-date.\nEEPROM registers are up-to-date.\ntrue",
              run(handler, &PowerFileHandler::compare, 9));
}

TEST_F(HandlerTest, CompareReadsADifferingRegisterTwiceAndStops)
{
    Handler handler;
    handler.add(Page::CODE, {1});
    handler.add(TonDelay::CODE, {0x34, 0x12});
    handler.add(ToffDelay::CODE, {0, 0});
    fakeSystem.bus = {0x35, 0x12, 0x36, 0x12};
    const auto differs = [](const char* data) {
        const std::string prefix = "<6>[INFO] PowerFileHandler.cpp (compare) - ";
        return "smbus 1000 read size 3: 60\n" + prefix
               + "Data of command 60 differs (command index in file = 1)\n" + prefix
               + "Target data: " + data + "\n" + prefix + "File data  : 1234\n";
    };
    EXPECT_EQ(
        LOCK + "smbus 1000 write size 2: 00 01\n" + differs("1235") + differs("1236")
            + "<3>[ERROR] PowerFileHandler.cpp (compare) - "
              "Data of command 60 differs (command index in file = 1)\n"
              "<6>[INFO] PowerFileHandler.cpp (compare) - "
              "Power monitor file contents differs from MAX34460 contents\n"
            + UNLOCK + VERSIONS
            + "RAM registers are NOT up-to-date.\nEEPROM registers are NOT up-to-date.\nfalse",
        run(handler, &PowerFileHandler::compare, 6));
}

TEST_F(HandlerTest, CompareToleratesOneFailedReadAndAnyFailedPage)
{
    Handler handler;
    handler.add(Page::CODE, {1});
    handler.add(TonDelay::CODE, {0x34, 0x12});
    fakeSystem.results = {42, 0, 0, -EIO, -EIO, -EIO, -EIO, -EIO, -EIO};
    fakeSystem.bus = {0x34, 0x12};
    const std::string text = run(handler, &PowerFileHandler::compare, 3);
    const std::string read = "smbus 1000 read size 3: 60\nusleep 10000\n";
    EXPECT_NE(
        std::string::npos,
        text.find(read + read + read
                  + "<3>[ERROR] PowerFileHandler.cpp (compare) - "
                    "Read/write failed for command 60 on page 1\nsmbus 1000 read size 3: 60\n"));
    EXPECT_EQ("true", text.substr(text.size() - 4));
}

TEST_F(HandlerTest, CompareNeedsListsOfEqualLengthThatAreNotEmpty)
{
    Handler handler;
    const std::string refusal = LOCK
                                + "<4>[WARNING] PowerFileHandler.cpp (compare) - "
                                  "Target commands and file commands sizes are different or 0\n"
                                + UNLOCK + "false";
    EXPECT_EQ(refusal, run(handler, &PowerFileHandler::compare, 4));
    handler.getFileCommands().push_back(Command::create(Page::CODE));
    EXPECT_EQ(refusal, run(handler, &PowerFileHandler::compare, 4));
    handler.clear(handler.getFileCommands());
    handler.getTargetCommands().push_back(Command::create(Page::CODE));
    EXPECT_EQ(refusal, run(handler, &PowerFileHandler::compare, 4));
}

TEST_F(HandlerTest, SomeModelsDontReadTwoRegistersBack)
{
    Handler handler;
    for (const auto& [model, comparable] : {std::pair{0x57, false}, {0x56, true}, {0, true}}) {
        handler.m_mfrModel.setByte(static_cast<std::uint8_t>(model));
        EXPECT_EQ(comparable, handler.isComparable(std::make_unique<MfrFwSerial>().get()));
        EXPECT_EQ(comparable, handler.isComparable(std::make_unique<MfrChannelNominal>().get()));
        EXPECT_TRUE(handler.isComparable(std::make_unique<MfrFaultRetry>().get()));
    }
    handler.m_mfrModel.setByte(0x57);
    handler.add(Page::CODE, {0});
    handler.add(MfrChannelNominal::CODE, {1, 1});
    EXPECT_EQ(std::string::npos, run(handler, &PowerFileHandler::compare, 9).find("read"));
    EXPECT_NE(std::string::npos,
              run(handler, &PowerFileHandler::writeCommands, 9).find("ea 01 01"));
}

TEST_F(HandlerTest, WriteGoesOnAfterAFailure)
{
    Handler handler;
    handler.add(TonDelay::CODE, {0x34, 0x12}); // before any page: on page 0
    handler.add(Page::CODE, {2});
    handler.add(ClearFaults::CODE, {});
    handler.add(TonDelay::CODE, {1, 0});
    fakeSystem.results = {42, 0, 0, -EIO, -EIO, -EIO};
    const std::string delay = "smbus 1000 write size 3: 60 34 12\nusleep 10000\n";
    EXPECT_EQ(LOCK + delay + delay + delay
                  + "smbus 1000 write size 2: 00 02\nsmbus 1000 write size 3: 60 01 00\n" + UNLOCK
                  + "false",
              run(handler, &PowerFileHandler::writeCommands, 2));

    const std::string text = run(handler, &PowerFileHandler::writeCommands, 7);
    const std::string prefix = "<7>[DEBUG1] PowerFileHandler.cpp (writeCommands) - Write ";
    EXPECT_NE(std::string::npos,
              text.find("acquired by PowerFileHandler::writeCommands\n" + prefix + "60 to page 0"));
    EXPECT_NE(std::string::npos, text.find(prefix + "00 to page 2"));
    EXPECT_NE(std::string::npos, text.find(prefix + "60 to page 2"));
    EXPECT_NE(
        std::string::npos,
        text.find(
            "<6>[INFO] PowerFileHandler.cpp (writeCommands) - Writing power monitor file: success\n"
            "semctl"));
}

TEST_F(HandlerTest, NothingToWriteIsASuccess)
{
    Handler handler;
    EXPECT_EQ(LOCK
                  + "<6>[INFO] PowerFileHandler.cpp (writeCommands) - Writing power monitor file: "
                    "success\n"
                  + UNLOCK + "true",
              run(handler, &PowerFileHandler::writeCommands, 6));
}

TEST_F(HandlerTest, Save)
{
    Handler handler;
    const std::string prefix =
        "<6>[INFO] PowerFileHandler.cpp (save) - Storing power monitor file to flash: ";
    EXPECT_EQ(LOCK + "smbus 1000 write size 1: 11\n" + prefix + "success\n" + UNLOCK + "true",
              run(handler, &PowerFileHandler::save, 6));
    fakeSystem.results = {42, 0, 0, -EIO, -EIO, -EIO};
    const std::string text = run(handler, &PowerFileHandler::save, 7);
    EXPECT_NE(std::string::npos, text.find("acquired by PowerFileHandler::save"));
    EXPECT_NE(std::string::npos, text.find(prefix + "failed\nsemctl"));
    EXPECT_EQ("false", text.substr(text.size() - 5));
}

} // namespace
