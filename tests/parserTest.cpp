#include "PowerFileParser.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <thread>

#include "fakeSystem.h"

namespace {

class ParserTest : public SystemTest {
protected:
    ParserTest() { setTraceLevel(0); }
    ~ParserTest() override { std::remove(m_path.c_str()); }

    std::string parse(const std::string& content)
    {
        std::ofstream(m_path, std::ios::binary) << content;
        return m_parser.parseFile(m_path);
    }

    /// The commands of the parsed file, one a line, and its version record.
    std::string load()
    {
        std::vector<Command*> list;
        const MfrDate mfrDate = m_parser.loadCommands(list);
        std::string text;
        for (Command* command : list) {
            char code[4];
            std::snprintf(code, sizeof(code), "%02x ", command->getCode());
            text += code + command->dataToString() + "\n";
            delete command;
        }
        return text + "version " + mfrDate.dataToString();
    }

    PowerFileParser m_parser;
    const std::string m_path = testing::TempDir() + "parserTest." + std::to_string(getpid());
};

/// A record line around `data`, its checksum, address and type of no matter.
std::string record(const std::string& data)
{
    char count[20];
    std::snprintf(count, sizeof(count), "%02zX", data.size() / 2);
    return ":" + std::string(count) + "000000" + data + "FF\n";
}

const std::string NO_VERSION = "version 00 00 00 00 00 00 00 00 ";
const std::string DATE = "089D0102030405060708";
const std::string DATE_LOADED = "9d 01 02 03 04 05 06 07 08 \nversion 01 02 03 04 05 06 07 08 ";

TEST_F(ParserTest, WellFormedFiles)
{
    const struct {
        const char* name;
        std::string content;
        std::string loaded;
    } cases[] = {
        {"empty", "", NO_VERSION},
        {"no usable record", "\n0123456789\nshort\n:00000001FF\n", NO_VERSION},
        {"page and operation",
         ":06000000010003010180"
         "74\n",
         "00 03\n01 80\n" + NO_VERSION},
        {"any mark, address, type and checksum",
         "x06ABCD99010003010180"
         "00\n",
         "00 03\n01 80\n" + NO_VERSION},
        {"no line end, lower case, trailing text",
         ":0400000002252b1affand more\r\n:0400000002262B1Aff", "25 1a2b\n26 1a2b\n" + NO_VERSION},
        {"entries across records",
         record("02") + record("252B1A08") + record("9D01") + "\r\n" + record("02030405060708"),
         "25 1a2b\n" + DATE_LOADED},
        {"surplus bytes", record("04252B1A77770200FF55"), "25 1a2b\n00 ff\n" + NO_VERSION},
        {"data for a command without any", record("01030A0003"),
         "03 <no data>\n03 <no data>\n" + NO_VERSION},
        {"unknown commands, one of them without data",
         record("010005"
                "0204AAAA"
                "0004"
                "010006"),
         "00 05\n00 06\n" + NO_VERSION},
        {"the last version counts", record("089DFFFFFFFFFFFFFFFF" + DATE),
         "9d ff ff ff ff ff ff ff ff \n" + DATE_LOADED},
        {"the longest entry and record",
         ":FF000000FF26" + std::string(506, '1') + "00\n" + record("1111"),
         "26 1111\n" + NO_VERSION},
    };
    for (const auto& [name, content, loaded] : cases) {
        parse(content);
        EXPECT_EQ(loaded, load()) << name;
        EXPECT_EQ(loaded, load()) << name << ", loaded again";
        EXPECT_EQ("", m_parser.getError()) << name;
    }
}

TEST_F(ParserTest, BrokenFilesAreRefusedWhole)
{
    const std::string good = record("010003");
    const struct {
        std::string content;
        std::string error;
    } cases[] = {
        {good + "hello, world", "line 2 holds something other than hexadecimal digits"},
        {good + "\n:0G000000FF00", "line 3 holds something other than hexadecimal digits"},
        {good + ":01000g000000", "line 2 holds something other than hexadecimal digits"},
        {good + ":01000000 000", "line 2 holds something other than hexadecimal digits"},
        {good + ":010000000G00", "line 2 holds something other than hexadecimal digits"},
        {good + ":01000000000-", "line 2 holds something other than hexadecimal digits"},
        {good + std::string(100, '\0'), "line 2 holds something other than hexadecimal digits"},
        {good + ":010000000000\r"[0] + good.substr(1, 12), "line 2 ends before its checksum"},
        {good + ":0100000000F", "line 2 ends before its checksum"},
        {good + ":FF000000000000", "line 2 ends before its checksum"},
        {good + record("01"), "the entry at byte 3 (command 00) runs past the end of the data"},
        {good + record("0125"), "the entry at byte 3 (command 25) runs past the end of the data"},
        {good + record("02252B"), "the entry at byte 3 (command 25) runs past the end of the data"},
        {good + record("02042B"), "the entry at byte 3 (command 04) runs past the end of the data"},
        {good + record("01252B"), "the entry at byte 3 (command 25) has 1 data bytes of 2"},
        {record("0000"), "the entry at byte 0 (command 00) has 0 data bytes of 1"},
        {record("079D01020304050607"), "the entry at byte 0 (command 9d) has 7 data bytes of 8"},
        {std::string(64 * 1024 * 1024 + 1, '\n'), "it is too large"},
    };
    for (const auto& [content, error] : cases) {
        EXPECT_EQ("", parse(content)) << error;
        EXPECT_EQ(error, m_parser.getError());
        EXPECT_EQ(NO_VERSION, load()) << error;
    }
    EXPECT_EQ("010003", parse(good)) << "the next file counts alone";
    EXPECT_EQ("", m_parser.getError());
}

TEST_F(ParserTest, WhatCantBeReadIsEmpty)
{
    parse(record("010003"));
    for (const char* path : {"/", "/dev/null", "/no/such/file"}) {
        EXPECT_EQ("", m_parser.parseFile(path)) << path;
        EXPECT_EQ("", m_parser.getError()) << path;
        EXPECT_EQ(NO_VERSION, load()) << path;
    }
}

TEST_F(ParserTest, SourcesThatAreNoRegularFiles)
{
    m_parser.parseFile("/dev/zero");
    EXPECT_EQ("it is too large", m_parser.getError());

    ASSERT_EQ(0, mkfifo(m_path.c_str(), 0600));
    std::thread writer([this] { std::ofstream(m_path) << record("010003"); });
    EXPECT_EQ("010003", m_parser.parseFile(m_path));
    writer.join();
}

TEST_F(ParserTest, ALineOfMegabytesIsARecordLikeAnyOther)
{
    EXPECT_EQ("010003", parse(":03000000010003FF" + std::string(8 << 20, 'x') + "\n"));
}

TEST_F(ParserTest, Numbers)
{
    const struct {
        std::string text;
        unsigned int position;
        unsigned int length;
        unsigned int value;
    } cases[] = {
        {"0123", 1, 2, 0x12},  {"fF", 0, 2, 0xFF}, {"AF09", 0, 4, 0xAF09}, {"af:", 0, 3, 0xAF},
        {"12@4", 0, 4, 0x12},  {"1g", 0, 2, 1},    {"1G", 0, 2, 1},        {"1/", 0, 2, 1},
        {" \t1A", 0, 4, 0x1A}, {"1 2", 0, 3, 1},   {"ABC", 2, 4, 0xC},     {"ABC", 3, 2, 0},
        {"ABC", 9, 2, 0},      {"x1", 0, 2, 0},    {"1`", 0, 2, 1},        {"", 0, 1, 0},
        {"ABC", ~0U, 2, 0},    {"ABC", 1, 0, 0},
    };
    for (const auto& [text, position, length, value] : cases) {
        EXPECT_EQ(value, m_parser.parseHex(text, position, length)) << text << position;
    }
}

TEST_F(ParserTest, ALineTooShortForItsDataIsNotReadBeyondItsEnd)
{
    EXPECT_EQ("", m_parser.parseLine(""));
    EXPECT_EQ("", m_parser.parseLine(":FF00000"));
    EXPECT_EQ("", m_parser.parseLine(":FF000000"));
    EXPECT_EQ("12", m_parser.parseLine(":FF00000012"));
}

TEST_F(ParserTest, LogOfAFile)
{
    setTraceLevel(9);
    parse(":04100A0302252B1A7F\n\n:030000000104AA55");
    load();
    EXPECT_EQ("<7>[DEBUG3] PowerFileParser.cpp (parseFile) - :04100A0302252B1A7F\n"
              "<7>[DEBUG] PowerFileParser.cpp (parseLine) - 04 100a 1 02252B1A 7f\n\n"
              "<7>[DEBUG3] PowerFileParser.cpp (parseFile) - :030000000104AA55\n"
              "<7>[DEBUG] PowerFileParser.cpp (parseLine) - 03 0000 0 0104AA 55\n\n"
              "<7>[DEBUG2] PowerFileParser.cpp (loadCommands) - Command: 25 02 03 00 00 \n0000\n\n"
              "<3>[ERROR] command.cpp (create) - Command 04 not found\n"
              "<3>[ERROR] PowerFileParser.cpp (loadCommands) - Unknown command: 04\n",
              transcript());
}

} // namespace
