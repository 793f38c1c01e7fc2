#include "command.h"

#include <cerrno>
#include <memory>

#include "fakeSystem.h"

namespace {

class TransferTest : public SystemTest {
protected:
    TransferTest() { setTraceLevel(4); }

    /// Makes one transfer, "read 25 on 3", of a command that holds 34 12 03 04 ... Returns what happened and what it
    /// holds then.
    static std::string transfer(const std::string& what)
    {
        char operation = ' ';
        unsigned int code = 0;
        unsigned int page = 0;
        std::sscanf(what.c_str(), "%c%*s %x on %u", &operation, &code, &page);
        const std::unique_ptr<Command> command(Command::create(code));
        const std::uint8_t bytes[255] = {0x34, 0x12, 3, 4, 5, 6, 7, 8};
        command->setData(bytes);
        command->setStatus(true);
        const auto onPage = static_cast<std::uint8_t>(page);
        const bool ok = operation == 'r' ? command->read(7, onPage) : command->write(7, onPage);
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
        {"write 9d on 255", "smbus 7 write size 6: 9d 34 12 03 04 05 06 07 08\nok 34 12 03 04 05 06 07 08 "},
        {"write dd on 0", "smbus 7 write size 6: dd 34 12 03 04\nok 34 12 03 04 "},
        {"read dc on 0", "rdwr 7 74 flags 0 len 1: dc 74 flags 1 len 255\nok 01 02 03 04 05 06 07 08 "},
        {"write 8b on 0", "ERROR write: Write command 8b on page 0 not allowed\nfailed 1234"},
        {"read 4f on 3", "ERROR read: Read command 4f on page 3 not allowed\nfailed 1234"},
        {"write 20 on 0", "ERROR write: Write command 20 on page 0 not allowed\nfailed 34"},
        {"write 7d on 13", "ERROR write: Write command 7d on page 13 not allowed\nfailed 34"},
        {"write 98 on 255", "ERROR write: Write command 98 on page 255 not allowed\nfailed 34"},
        {"read 01 on 255", "ERROR read: Read command 01 on page 255 not allowed\nfailed 34"},
        {"write 00 on 12",
         "ERROR isValid: Invalid page 12\nERROR write: Write command 00 on page 12 not allowed\nfailed 0c"},
        {"read 9d on 12", "ERROR isValid: Invalid page 12\nERROR read: Read command 9d on page 12 not allowed\n"
                          "failed 34 12 03 04 05 06 07 08 "},
        {"write dc on 18", "ERROR isValid: Invalid page 18\nERROR write: Write command dc on page 18 not allowed\n"
                           "failed 34 12 03 04 05 06 07 08 "},
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
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"read 02 on 255", "smbus 7 read size 2: 02\n", "34"},
        {"write 02 on 255", "smbus 7 write size 2: 02 34\n", "34"},
        {"write 00 on 13", "smbus 7 write size 2: 00 0d\n", "0d"},
        {"read d1 on 255", "smbus 7 read size 3: d1\n", "1234"},
        {"write d1 on 255", "smbus 7 write size 3: d1 1234\n", "1234"},
        {"read dd on 13", "rdwr 7 74 flags 0 len 1: dd 74 flags 1 len 4\n", "34 12 03 04 "},
        {"write dd on 13", "smbus 7 write size 6: dd 34 12 03 04\n", "34 12 03 04 "},
        {"write 11 on 13", "smbus 7 write size 1: 11\n", "<no data>"}, // its message has no error
    };
    for (const auto& [what, request, data] : cases) {
        const bool isRead = what[0] == 'r';
        const std::string text = what;
        const std::string code = text.substr(isRead ? 5 : 6, 2);
        const std::string page = text.substr(text.rfind(' ') + 1);
        const auto failed = [&, wanted = request](int number, const std::string& error) {
            return attempt(number, wanted,
                           (isRead ? "Read command " : "Write command ") + code + " on page " + page + " failed"
                               + (code == "11" ? "" : ", " + error));
        };
        const std::string twice = failed(1, "Remote I/O error") + failed(2, "Interrupted system call");

        fakeSystem.results = {-EREMOTEIO, -EINTR, -ETIMEDOUT};
        EXPECT_EQ(twice + failed(3, "Connection timed out") + "failed " + data, transfer(what));
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
