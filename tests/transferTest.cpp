#include "command.h"

#include <cerrno>
#include <memory>

#include "fakeSystem.h"

namespace {

class TransferTest : public SystemTest {
protected:
    TransferTest() { setTraceLevel(4); }

    /// Runs one transfer of the command with `code` and returns what happened.
    static std::string transfer(const char* operation, unsigned int code, int page)
    {
        const std::unique_ptr<Command> command(Command::create(code));
        const std::uint8_t bytes[255] = {0x34, 0x12, 3, 4, 5, 6, 7, 8};
        command->setData(bytes);
        const auto onPage = static_cast<std::uint8_t>(page);
        const bool ok = operation[0] == 'r' ? command->read(7, onPage) : command->write(7, onPage);
        EXPECT_EQ(ok, command->getStatus());
        std::string data = command->dataToString();
        return transcript() + (ok ? "ok " : "failed ") + data.substr(0, 24);
    }
};

TEST_F(TransferTest, OneRequestEach)
{
    const struct {
        const char* operation;
        unsigned int code;
        int page;
        std::string expected;
    } cases[] = {
        {"write", ClearFaults::CODE, 255, "smbus 7 write size 1: 03\nok <no data>"},
        {"read", OnOffConfig::CODE, 0, "smbus 7 read size 2: 02\nok 01"},
        {"write", OnOffConfig::CODE, 11, "smbus 7 write size 2: 02 34\nok 34"},
        {"write", Page::CODE, 5, "smbus 7 write size 2: 00 05\nok 05"},
        {"read", VoutMarginHigh::CODE, 11, "smbus 7 read size 3: 25\nok 0201"},
        {"write", OTFaultLimit::CODE, 13, "smbus 7 write size 3: 4f 34 12\nok 1234"},
        {"write", OTFaultLimit::CODE, 17, "smbus 7 write size 3: 4f 34 12\nok 1234"},
        {"read", MfrDate::CODE, 255,
         "rdwr 7 74 flags 0 len 1: 9d 74 flags 1 len 8\nok 01 02 03 04 05 06 07 08 "},
        {"write", MfrDate::CODE, 255,
         "smbus 7 write size 6: 9d 34 12 03 04 05 06 07 08\nok 34 12 03 04 05 06 07 08 "},
        {"write", MfrTimeCount::CODE, 0, "smbus 7 write size 6: dd 34 12 03 04\nok 34 12 03 04 "},
        {"read", MfrNvFaultLog::CODE, 0,
         "rdwr 7 74 flags 0 len 1: dc 74 flags 1 len 255\nok 01 02 03 04 05 06 07 08 "},
    };
    for (const auto& [operation, code, page, expected] : cases) {
        fakeSystem.bus = {1, 2, 3, 4, 5, 6, 7, 8};
        EXPECT_EQ(expected, transfer(operation, code, page)) << operation << " " << code;
    }
}

TEST_F(TransferTest, RefusedWithoutTraffic)
{
    const auto refusal = [](const std::string& rest) {
        return "<3>[ERROR] command.cpp (" + rest + "\n";
    };
    const std::string invalid12 = refusal("isValid) - Invalid page 12");
    const struct {
        const char* operation;
        unsigned int code;
        int page;
        std::string log;
    } cases[] = {
        {"write", ReadVout::CODE, 0, refusal("write) - Write command 8b on page 0 not allowed")},
        {"read", OTFaultLimit::CODE, 3, refusal("read) - Read command 4f on page 3 not allowed")},
        {"write", VoutMode::CODE, 0, refusal("write) - Write command 20 on page 0 not allowed")},
        {"read", Operation::CODE, 255, refusal("read) - Read command 01 on page 255 not allowed")},
        {"read", MfrDate::CODE, 12,
         invalid12 + refusal("read) - Read command 9d on page 12 not allowed")},
        {"write", MfrDate::CODE, 12,
         invalid12 + refusal("write) - Write command 9d on page 12 not allowed")},
        {"write", ClearFaults::CODE, 18,
         refusal("isValid) - Invalid page 18")
             + refusal("write) - Write command 03 on page 18 not allowed")},
        {"read", ClearFaults::CODE, 254, refusal("isValid) - Invalid page 254")},
        {"read", ClearFaults::CODE, 0, ""},
    };
    for (const auto& [operation, code, page, log] : cases) {
        EXPECT_EQ(log + "failed", transfer(operation, code, page).substr(0, log.size() + 6));
    }
}

TEST_F(TransferTest, ThreeAttemptsWithPausesAndTheErrorOfEach)
{
    const struct {
        const char* operation;
        const char* label;
        unsigned int code;
        const char* request;
        const char* data;
    } cases[] = {
        {"read", "Read", OnOffConfig::CODE, "smbus 7 read size 2: 02\n", "34"},
        {"write", "Write", OnOffConfig::CODE, "smbus 7 write size 2: 02 34\n", "34"},
        {"read", "Read", MfrMode::CODE, "smbus 7 read size 3: d1\n", "1234"},
        {"write", "Write", MfrMode::CODE, "smbus 7 write size 3: d1 34 12\n", "1234"},
        {"read", "Read", MfrTimeCount::CODE, "rdwr 7 74 flags 0 len 1: dd 74 flags 1 len 4\n",
         "34 12 03 04 "},
        {"write", "Write", MfrTimeCount::CODE, "smbus 7 write size 6: dd 34 12 03 04\n",
         "34 12 03 04 "},
        {"write", "Write", StoreDefaultAll::CODE, "smbus 7 write size 1: 11\n", "<no data>"},
    };
    for (const auto& [operation, label, code, request, data] : cases) {
        const std::string prefix = "<4>[WARNING] command.cpp (" + std::string(operation) + ") - ";
        const auto attempt = [&, code = code, request = request, label = label](int number,
                                                                                const char* error) {
            char failure[64];
            std::snprintf(failure, sizeof(failure), "%s command %02x on page 255 failed", label,
                          code);
            return request + prefix + failure
                   + (code == StoreDefaultAll::CODE ? "" : std::string(", ") + error) + "\n"
                   + prefix + "retry " + std::to_string(number) + "\nusleep 10000\n";
        };
        const std::string twice =
            attempt(1, "Remote I/O error") + attempt(2, "Interrupted system call");

        fakeSystem.results = {-EREMOTEIO, -EINTR, -ETIMEDOUT};
        EXPECT_EQ(twice + attempt(3, "Connection timed out") + "failed " + data,
                  transfer(operation, code, 255));

        fakeSystem.results = {-EREMOTEIO, -EINTR};
        EXPECT_EQ(twice + request + "ok ",
                  transfer(operation, code, 255).substr(0, twice.size() + strlen(request) + 3));
    }
}

TEST_F(TransferTest, WhatARequestReturnsDecidesItsSuccess)
{
    setTraceLevel(0);
    for (const auto& [operation, code, result, ok] : {std::tuple{"read", 0x02U, 1, false},
                                                      {"read", 0xD1U, 1, false},
                                                      {"read", 0xDDU, 0, true},
                                                      {"read", 0xDDU, 1, true},
                                                      {"write", 0x02U, 1, true},
                                                      {"write", 0xD1U, 1, true},
                                                      {"write", 0xDDU, 1, true},
                                                      {"write", 0x03U, 1, true}}) {
        fakeSystem.results = {result, result, result};
        EXPECT_EQ(ok, transfer(operation, code, 255).find("ok ") != std::string::npos)
            << operation << code;
    }
}

TEST_F(TransferTest, BlocksOutsideTheSizesOfTheCatalogue)
{
    const std::uint8_t bytes[255] = {};
    BlockCommand tiny(0xD0, 2, 3, 3, 3);
    EXPECT_FALSE(tiny.write(7, 0));
    EXPECT_EQ("<3>[ERROR] command.cpp (write) - Command expects datasize 2\n", transcript());

    for (const auto& [size, sent] : {std::pair{3, 3}, {32, 32}, {33, 32}, {255, 32}}) {
        BlockCommand block(0xD0, static_cast<std::uint8_t>(size), 3, 3, 3);
        block.setData(bytes);
        EXPECT_TRUE(block.write(7, 0));
        const std::size_t digits = transcript().size() - sizeof("smbus 7 write size 6: d0");
        EXPECT_EQ(static_cast<std::size_t>(3 * sent), digits) << size;
    }
}

TEST_F(TransferTest, APageKeepsItsNumberWhenItsWriteFails)
{
    Page page;
    fakeSystem.results = {-EIO, -EIO, -EIO};
    EXPECT_FALSE(page.write(7, 5));
    EXPECT_EQ(5, page.getByte());
    EXPECT_FALSE(page.write(7, 12));
    EXPECT_EQ(12, page.getByte());
}

TEST_F(TransferTest, AFailedReadAfterASuccessResetsTheStatus)
{
    MfrId id;
    EXPECT_TRUE(id.read(7, 255));
    fakeSystem.results = {-EIO, -EIO, -EIO};
    EXPECT_FALSE(id.read(7, 255));
    EXPECT_FALSE(id.getStatus());
    id.setStatus(true);
    EXPECT_FALSE(id.read(7, 12));
    EXPECT_FALSE(id.getStatus());
}

} // namespace
