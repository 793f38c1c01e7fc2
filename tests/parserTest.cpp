#include "PowerFileParser.h"

#include <filesystem>
#include <memory>

#include "fakeSystem.h"

namespace {

class ParserTest : public SystemTest {
protected:
    ParserTest() { setTraceLevel(0); }

    std::string parse(const std::string& content) { return m_parser.parseFile(write("file", content)); }

    /// The commands of the parsed file, one per line, and its version record.
    std::string load()
    {
        std::vector<Command*> list;
        const MfrDate mfrDate = m_parser.loadCommands(list);
        std::string text;
        for (Command* command : list) {
            text += command->toString().substr(9, 3) + command->dataToString() + "\n"; // its code and data
            delete command;
        }
        return text + "version " + mfrDate.dataToString();
    }

    PowerFileParser m_parser;
};

const std::string NO_VERSION = "version 00 00 00 00 00 00 00 00 ";
const std::string DATE = "089D0102030405060708";
const std::string DATE_LOADED = "9d 01 02 03 04 05 06 07 08 \nversion 01 02 03 04 05 06 07 08 ";

TEST_F(ParserTest, WellFormedFiles)
{
    const std::pair<std::string, std::string> cases[] = {
        {"\n0123456789\nshort\n:00000001FF\n", NO_VERSION},
        {"x06ABCD9901000301018000\n", "00 03\n01 80\n" + NO_VERSION}, // any mark, address, type and checksum
        {":0400000002252b1affand more\r\n:0400000002262B1Aff", "25 1a2b\n26 1a2b\n" + NO_VERSION},
        {asRecord("02") + asRecord("252B1A08") + asRecord("9D01") + "\r\n" + asRecord("02030405060708"),
         "25 1a2b\n" + DATE_LOADED},
        {":03000000010003FF" + std::string(1 << 19, 'x') + "\n", "00 03\n" + NO_VERSION},
        {asRecord("04252B1A77770200FF55"), "25 1a2b\n00 ff\n" + NO_VERSION}, // surplus bytes
        {asRecord("01030A0003"), "03 <no data>\n03 <no data>\n" + NO_VERSION},
        {asRecord("0100050204AAAA0004010006"), "00 05\n00 06\n" + NO_VERSION}, // unknown commands
        {asRecord("089DFFFFFFFFFFFFFFFF" + DATE), "9d ff ff ff ff ff ff ff ff \n" + DATE_LOADED},
        {":FF000000FF26" + std::string(506, '1') + "00\n" + asRecord("1111"), "26 1111\n" + NO_VERSION},
    };
    for (const auto& [content, loaded] : cases) {
        parse(content);
        write("file", "changed"); // a file is read once
        EXPECT_EQ(loaded, load()) << content.substr(0, 99);
        EXPECT_EQ(loaded, load()) << content.substr(0, 99) << ", loaded again";
        EXPECT_EQ("", m_parser.getError()) << content.substr(0, 99);
    }
}

TEST_F(ParserTest, BrokenFilesKeepTheirDataAndNameTheirFirstFault)
{
    const std::string good = asRecord("010003");
    const std::string page = "00 03\n";
    const std::string noDigits = "line 2 holds something other than hexadecimal digits";
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {good + "hello, world\n:0G000000FF00", noDigits, page},
        {good + "\n:0g0000000100\n" + asRecord("01"), "line 3 holds something other than hexadecimal digits",
         page + "00 00\n"},
        {good + ":02000000g6 100", noDigits, page + "01 00\n"},
        {good + ":0200000000010-", noDigits, page + "01 00\n"},
        {good + ":0100000000F", "line 2 ends before its checksum", page + "00 00\n"},
        {good + ":FF0000000100071", "line 2 ends before its checksum", page + "00 07\n00 00\n"},
        {good + asRecord("01"), "the entry at byte 3 in line 2 is cut off behind its length", page + "00 00\n"},
        {good + "\r\n" + asRecord("02") + asRecord("252B"),
         "the entry at byte 3 in line 3 (command 25) runs past the end of the data", page + "25 002b\n"},
        {good + asRecord("02042B"), "the entry at byte 3 in line 2 (command 04) runs past the end of the data", page},
        {good + asRecord("01252B") + asRecord("02"), "the entry at byte 3 in line 2 (command 25) has 1 data bytes of 2",
         page + "25 002b\n00 00\n"},
        {asRecord("FF9D010203040506"), "the entry at byte 0 in line 1 (command 9d) runs past the end of the data",
         "9d 01 02 03 04 05 06 00 00 \nversion 01 02 03 04 05 06 00 00 "},
    };
    for (const auto& [content, error, loaded] : cases) {
        parse(content);
        EXPECT_EQ(error, m_parser.getError());
        EXPECT_EQ(loaded.back() == ' ' ? loaded : loaded + NO_VERSION, load()) << error;
    }
    EXPECT_EQ("hello, w", parse("x04000000hello, w")) << "whatever stands there";
    EXPECT_EQ("", m_parser.parseLine("") + m_parser.parseLine(":FF00000")) << "nothing behind its end";
    EXPECT_EQ("010003", parse(good)) << "the next file counts alone";
    for (const char* nothing : {"/", "/dev/null", "/no/such/file"}) {
        EXPECT_EQ("", m_parser.parseFile(nothing) + m_parser.getError()) << nothing;
        EXPECT_EQ(NO_VERSION, load()) << nothing;
    }
}

TEST_F(ParserTest, WhatFailsOnTheWayOrIsTooLargeIsRefused)
{
    fakeSystem.goodReads = 1;
    EXPECT_EQ("010003", parse(asRecord("010003") + std::string(1 << 19, '\n')));
    EXPECT_EQ("reading it failed on the way", m_parser.getError());
    fakeSystem.readError = EINTR;
    fakeSystem.goodReads = 0;
    EXPECT_EQ("010003", parse(asRecord("010003"))) << "interrupted";
    for (const auto& [size, digits, error] :
         {std::tuple{1 << 20, "010003", "line 2 holds something other than hexadecimal digits"},
          {(1 << 20) + 1, "", "it is too large"}}) {
        const std::string file = write("file", asRecord("010003"));
        std::filesystem::resize_file(file, static_cast<std::size_t>(size)); // with zeros
        EXPECT_EQ(digits, m_parser.parseFile(file));
        EXPECT_EQ(error, m_parser.getError());
    }
}

TEST_F(ParserTest, Numbers)
{
    const std::tuple<std::string, unsigned int, unsigned int, unsigned int> cases[] = {
        {"0123", 1, 2, 0x12},    {"fF", 0, 2, 0xFF},      {"AF09", 0, 4, 0xAF09}, {"af:", 0, 3, 0xAF},
        {"12@4", 0, 4, 0x12},    {" \t1A", 0, 4, 0x1A},   {"1 2", 0, 3, 1},       {"ABC", 2, 4, 0xC},
        {"ABC", 3, 2, 0},        {"ABC", 9, 2, 0},        {"ABC", ~0U, 2, 0},     {"ABC", 1, 0, 0},
        {"x1", 0, 2, 0},         {"", 0, 1, 0},           {"ABC", 1, ~0U, 0xBC},  {"-1", 0, 2, 0},
        {"FFFFFFFF", 0, 8, ~0U}, {"123456789", 0, 9, ~0U}};
    for (const auto& [text, position, length, value] : cases) {
        EXPECT_EQ(value, m_parser.parseHex(text, position, length)) << text << position;
    }
}

TEST_F(ParserTest, LogOfAFile)
{
    setTraceLevel(9);
    parse(":04100A0302252B1A7F\n\n:030000000104AA55\n:00000001FF\n:0000001000");
    load();
    EXPECT_EQ("DEBUG3 parseFile: :04100A0302252B1A7F\nDEBUG parseLine: 04 100a 1 02252B1A 7f\n\n"
              "DEBUG3 parseFile: :030000000104AA55\nDEBUG parseLine: 03 0000 0 0104AA 55\n\n"
              "DEBUG3 parseFile: :00000001FF\nDEBUG parseLine: 00 0000 1  ff\n\n"
              "DEBUG3 parseFile: :0000001000\nDEBUG parseLine: 00 0000 1  00\n\n"
              "DEBUG2 loadCommands: Command: 25 02 03 00 00 \n0000\n\n"
              "ERROR create: Command 04 not found\nERROR loadCommands: Unknown command: 04\n",
              transcript());
}

} // namespace
