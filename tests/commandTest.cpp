#include "commandCatalogue.h"

#include <cerrno>
#include <memory>

#include "fakeSystem.h"

namespace {

using CommandTest = SystemTest;

std::unique_ptr<Command> create(unsigned int code)
{
    return std::unique_ptr<Command>(Command::create(code));
}

TEST_F(CommandTest, CodesThatTheCatalogueDoesNotHaveAreRefused)
{
    EXPECT_FALSE(create(0x04) || create(0x142));
    EXPECT_EQ("ERROR create: Command 04 not found\nERROR create: Command 142 not found\n", transcript());
}

TEST_F(CommandTest, EachDataSizeLoadsItsBytesShowsThemAndGivesThemBack)
{
    const std::string line = "f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 "
                             "f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 \n";
    const std::string lines = line + line + line + line + line + line + line;
    const std::tuple<unsigned int, std::string, std::string> cases[] = {
        {ClearFaults::CODE, "", "Command: 03 00 02 02 02 \n<no data>\n"},
        {Page::CODE, "\x0a", "Command: 00 01 03 03 03 \n0a\n"},
        {VoutMarginHigh::CODE, "\x2b\x0a", "Command: 25 02 03 00 00 \n0a2b\n"},
        {MfrTemperatureAvg::CODE, "\x2b\x1a", "Command: e3 02 00 03 00 \n1a2b\n"},
        {MfrTimeCount::CODE, "\1\2\3\4", "Command: dd 04 03 03 03 \n01 02 03 04 \n"},
        {MfrNvFaultLog::CODE, std::string(255, '\xf0'), "Command: dc 255 01 01 01 \n" + lines + line.substr(3)},
    };
    for (const auto& [code, bytes, text] : cases) {
        const auto command = create(code);
        command->setData(reinterpret_cast<const std::uint8_t*>(bytes.data()));
        EXPECT_EQ(text, command->toString());
        std::string back(bytes.size() + 1, '.');
        EXPECT_FALSE(command->getData(reinterpret_cast<std::uint8_t*>(back.data()))) << "no transfer yet: " << text;
        EXPECT_EQ(bytes + ".", back);
        command->setStatus(true);
        EXPECT_TRUE(command->getData(reinterpret_cast<std::uint8_t*>(back.data()))) << text;
    }
}

TEST_F(CommandTest, Comparisons)
{
    const std::uint8_t low[8] = {1};
    const std::uint8_t high[8] = {0, 1};
    const std::uint8_t fifth[8] = {0, 0, 0, 0, 1};
    const auto make = [](auto command, const std::uint8_t* bytes) {
        command.setData(bytes);
        return command;
    };
    const Page page, samePage;
    const VoutMarginHigh word;
    const MfrDate date;
    const MfrTimeCount block4;
    const BlockCommand twin(MfrDate::CODE, 8, 3, 3, 3);
    const struct {
        const Command& left;
        const Command& right;
        bool compare;
        bool equal;
    } cases[] = {
        {page, samePage, true, true},
        {page, make(Page(), low), false, false},
        {page, word, false, false},
        {word, page, false, false},
        {word, make(VoutMarginHigh(), high), false, false},
        {block4, make(MfrDate(), fifth), true, false},
        {make(MfrDate(), fifth), block4, false, false},
        {date, make(MfrDate(), fifth), false, false},
        {date, word, false, false},
        {date, twin, true, true},
        {twin, BlockCommand(MfrDate::CODE, 4, 3, 3, 3), true, false},
        {twin, BlockCommand(MfrDate::CODE, 8, 1, 3, 3), true, false},
        {twin, BlockCommand(MfrDate::CODE, 8, 3, 1, 3), true, false},
        {twin, BlockCommand(MfrDate::CODE, 8, 3, 3, 1), true, false},
        {twin, BlockCommand(MfrSerial::CODE, 8, 3, 3, 3), true, false},
        {ClearFaults(), page, true, false},
    };
    for (const auto& [left, right, compare, equal] : cases) {
        const std::string name = left.toString() + right.toString();
        const bool hasData = left.getDataSize() > 0;
        const std::string trace = hasData ? "DEBUG compare: \n" : "";
        EXPECT_EQ(compare, left.compare(&right)) << name;
        EXPECT_EQ(!hasData, left.compare(nullptr)) << name;
        EXPECT_EQ(!compare, left != right) << name;
        EXPECT_EQ(trace + trace + "DEBUG operator!=: \n" + trace, transcript()) << name;
        EXPECT_EQ(equal, left == right) << name;
        EXPECT_EQ(0U, transcript().find("DEBUG operator==: \n" + (equal ? trace : ""))) << name;
    }
}

class TransferTest : public SystemTest {
protected:
    TransferTest() { setTraceLevel(4); }

    /// Makes one transfer, "read 25 on 3", of a command that holds 34 12 03 04 ... Returns what happened and what it
    /// holds then.
    static std::string transfer(const std::string& what)
    {
        char operation = ' ';
        unsigned int code = 0;
        std::uint8_t page = 0;
        std::sscanf(what.c_str(), "%c%*s %x on %hhu", &operation, &code, &page);
        const auto command = create(code);
        const std::uint8_t bytes[255] = {0x34, 0x12, 3, 4, 5, 6, 7, 8};
        command->setData(bytes);
        command->setStatus(true);
        const bool ok = operation == 'r' ? command->read(7, page) : command->write(7, page);
        EXPECT_EQ(ok, command->getStatus()) << what;
        return transcript() + (ok ? "ok " : "failed ") + command->dataToString().substr(0, 24);
    }
};

TEST_F(TransferTest, OneRequestEachOrRefusedWithoutTraffic)
{
    const std::pair<const char*, const char*> cases[] = {
        {"write 03 on 255", "smbus 7 write size 1: 03\nok <no data>"},
        {"read 02 on 0", "smbus 7 read size 2: 02\nok 01"},
        {"write 02 on 11", "smbus 7 write size 2: 02 34\nok 34"},
        {"write 00 on 5", "smbus 7 write size 2: 00 05\nok 05"},
        {"read 25 on 11", "smbus 7 read size 3: 25\nok 0201"},
        {"write 4f on 13", "smbus 7 write size 3: 4f 1234\nok 1234"},
        {"write 4f on 17", "smbus 7 write size 3: 4f 1234\nok 1234"},
        {"read 9d on 255", "rdwr 7 74 flags 0 len 1: 9d 74 flags 1 len 8\nok 01 02 03 04 05 06 07 08 "},
        {"read dc on 0", "rdwr 7 74 flags 0 len 1: dc 74 flags 1 len 255\nok 01 02 03 04 05 06 07 08 "},
        {"write 8b on 0", "ERROR write: Write command 8b on page 0 not allowed\nfailed 1234"},
        {"read 4f on 3", "ERROR read: Read command 4f on page 3 not allowed\nfailed 1234"},
        {"write 7d on 13", "ERROR write: Write command 7d on page 13 not allowed\nfailed 34"},
        {"write 98 on 255", "ERROR write: Write command 98 on page 255 not allowed\nfailed 34"},
        {"read 01 on 255", "ERROR read: Read command 01 on page 255 not allowed\nfailed 34"},
        {"write 00 on 12",
         "ERROR isValid: Invalid page 12\nERROR write: Write command 00 on page 12 not allowed\nfailed 0c"},
        {"write 03 on 18",
         "ERROR isValid: Invalid page 18\nERROR write: Write command 03 on page 18 not allowed\nfailed <no data>"},
        {"read 03 on 254", "ERROR isValid: Invalid page 254\nfailed <no data>"},
        {"read 03 on 0", "failed <no data>"},
    };
    for (const auto& [what, expected] : cases) {
        fakeSystem.bus = {1, 2, 3, 4, 5, 6, 7, 8};
        EXPECT_EQ(expected, transfer(what));
    }
}

TEST_F(TransferTest, ThreeAttemptsWithPausesAndTheErrorOfEach)
{
    const std::tuple<const char*, std::string, std::string, std::string> cases[] = {
        {"read 02 on 255", "smbus 7 read size 2: 02\n", "Read command 02 on page 255 failed, ", "34"},
        {"write 02 on 255", "smbus 7 write size 2: 02 34\n", "Write command 02 on page 255 failed, ", "34"},
        {"read d1 on 255", "smbus 7 read size 3: d1\n", "Read command d1 on page 255 failed, ", "1234"},
        {"write d1 on 255", "smbus 7 write size 3: d1 1234\n", "Write command d1 on page 255 failed, ", "1234"},
        {"read dd on 13", "rdwr 7 74 flags 0 len 1: dd 74 flags 1 len 4\n", "Read command dd on page 13 failed, ",
         "34 12 03 04 "},
        {"write dd on 13", "smbus 7 write size 6: dd 34 12 03 04\n", "Write command dd on page 13 failed, ",
         "34 12 03 04 "},
        {"write 11 on 13", "smbus 7 write size 1: 11\n", "Write command 11 on page 13 failed", "<no data>"},
    };
    for (const auto& [what, request, failure, data] : cases) {
        const bool tells = failure.back() == ' ';
        const std::string twice = attempt(1, request, failure + (tells ? "Remote I/O error" : ""))
                                  + attempt(2, request, failure + (tells ? "Interrupted system call" : ""));
        const std::string third = attempt(3, request, failure + (tells ? "Connection timed out" : ""));
        fakeSystem.results = {-EREMOTEIO, -EINTR, -ETIMEDOUT};
        EXPECT_EQ(twice + third + "failed " + data, transfer(what));
        EXPECT_EQ(ETIMEDOUT, errno);
        fakeSystem.results = {-EREMOTEIO, -EINTR};
        EXPECT_EQ(twice + request + "ok ", transfer(what).substr(0, (twice + request).size() + 3));
    }
}

TEST_F(TransferTest, WhatARequestReturnsDecidesItsSuccess)
{
    const auto succeeds = [](const char* what, int result) {
        fakeSystem.results = {result, result, result};
        return transfer(what).find("ok ") != std::string::npos;
    };
    for (const char* what : {"read dd on 0", "write 02 on 0", "write d1 on 0", "write dd on 0", "write 03 on 0"}) {
        EXPECT_TRUE(succeeds(what, 1)) << what;
    }
    EXPECT_TRUE(succeeds("read dd on 0", 0));
    EXPECT_FALSE(succeeds("read 02 on 0", 1));
    EXPECT_FALSE(succeeds("read d1 on 0", 1));
}

TEST_F(TransferTest, BlocksOutsideTheSizesOfTheCatalogue)
{
    EXPECT_EQ("ERROR write: Command expects datasize 2\nfalse\n",
              recordResult([] { return BlockCommand(0xD0, 2, 3, 3, 3).write(7, 0); }));
    EXPECT_EQ("ERROR write: Write command d0 on page 0 not allowed\nfalse\n",
              recordResult([] { return BlockCommand(0xD0, 2, 1, 3, 3).write(7, 0); }));
    for (const auto& [size, sent] : {std::pair{3, 3}, {32, 32}, {33, 32}, {255, 32}}) {
        BlockCommand block(0xD0, static_cast<std::uint8_t>(size), 3, 3, 3);
        EXPECT_EQ(static_cast<std::size_t>(3 * sent) + sizeof("smbus 7 write size 6: d0"),
                  record([&block] { block.write(7, 0); }).size());
    }
}

TEST_F(TransferTest, WhatATransferLeavesAlone)
{
    struct Block : BlockCommand {
        explicit Block(std::uint8_t size) : BlockCommand(0xD0, size, 3, 3, 3) { m_retries = 7; }
        void setData(const std::uint8_t* /*bytes*/) override { ADD_FAILURE() << "a read is no setData"; }
        using BlockCommand::m_data;
        using BlockCommand::m_retries;
    };
    Block tooSmall(2);
    EXPECT_FALSE(tooSmall.write(7, 0) || tooSmall.read(7, 12));
    EXPECT_EQ(7, tooSmall.m_retries) << "what is refused is no transfer";
    fakeSystem.bus = {1, 2, 3};
    Block block(3);
    block.m_data[200] = 9;
    EXPECT_TRUE(block.read(7, 0));
    EXPECT_EQ(0, block.m_data[200]) << "what is behind the data is cleared";
    EXPECT_EQ("01 02 03 ", block.dataToString());
    EXPECT_EQ(3, block.m_retries);
}

} // namespace
