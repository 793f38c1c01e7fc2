#include "command.h"

#include <map>
#include <memory>
#include <type_traits>

#include "fakeSystem.h"

namespace {

using CommandTest = SystemTest;

std::unique_ptr<Command> create(unsigned int code)
{
    return std::unique_ptr<Command>(Command::create(code));
}

std::string bytesOf(const Command& command)
{
    std::uint8_t bytes[255] = {};
    command.getData(bytes);
    return {bytes, bytes + command.getDataSize()};
}

/// Codes and sizes of the catalogue, grouped by the rights on channels,
/// temperature sensors and the device.
std::string catalogue()
{
    std::map<std::string, std::string> groups;
    for (unsigned int code = 0; code <= 0x1FF; ++code) {
        const auto command = create(code);
        EXPECT_EQ(command != nullptr, Command::findDataSize(code).has_value()) << code;
        if (command == nullptr) {
            continue;
        }
        EXPECT_EQ(code, command->getCode());
        EXPECT_EQ(command->getDataSize(), Command::findDataSize(code)) << code;
        const std::string text = command->toString(); // Command: 25 02 03 00 00
        std::string& group = groups[text.substr(text.find(' ', 12) + 1, 8)];
        group += " " + text.substr(9, 2) + ":" + std::to_string(command->getDataSize());
    }
    std::string text;
    for (const auto& [rights, commands] : groups) {
        text += rights + " " + commands + "\n";
    }
    return text;
}

TEST_F(CommandTest, CatalogueByRights)
{
    setTraceLevel(0);
    EXPECT_EQ("00 00 01  e0:2\n"
              "00 01 00  7d:1 8d:2\n"
              "00 03 00  4f:2 51:2 d6:2 e3:2 f0:2\n"
              "01 00 00  7a:1 8b:2\n"
              "01 00 01  80:1\n"
              "01 01 01  19:1 20:1 79:2 7e:1 98:1 99:1 9a:1 9b:2 dc:255\n"
              "02 02 02  03:0 11:0 12:0\n"
              "03 00 00  25:2 26:2 2a:2 40:2 42:2 43:2 44:2 5e:2 5f:2 60:2 62:2 64:2 d2:1 d3:1 d4:2"
              " d7:2 d9:2 df:2 ea:2\n"
              "03 00 02  01:1\n"
              "03 03 03  00:1 02:1 10:1 9c:8 9d:8 9e:8 d1:2 d8:2 da:2 db:2 dd:4 fb:2 fc:2 fd:2\n",
              catalogue());
}

TEST_F(CommandTest, ACodeOutsideTheCatalogueIsRefused)
{
    for (const unsigned int code : {0x04U, 0xFEU, 0x1FFU}) {
        EXPECT_EQ(nullptr, create(code));
    }
    EXPECT_EQ("<3>[ERROR] command.cpp (create) - Command 04 not found\n"
              "<3>[ERROR] command.cpp (create) - Command fe not found\n"
              "<3>[ERROR] command.cpp (create) - Command 1ff not found\n",
              transcript());
}

TEST_F(CommandTest, EachDataSizeLoadsItsBytesAndShowsThem)
{
    std::string block255;
    for (int line = 0; line < 8; ++line) {
        for (int i = 0; i < (line < 7 ? 32 : 31); ++i) {
            block255 += "f0 ";
        }
        block255 += line < 7 ? "\n" : "";
    }
    const struct {
        unsigned int code;
        std::string bytes;
        std::string text;
    } cases[] = {
        {ClearFaults::CODE, "", "Command: 03 00 02 02 02 \n<no data>\n"},
        {Page::CODE, "\x0a", "Command: 00 01 03 03 03 \n0a\n"},
        {VoutMarginHigh::CODE, "\x2b\x1a", "Command: 25 02 03 00 00 \n1a2b\n"},
        {MfrTimeCount::CODE, "\1\2\3\4", "Command: dd 04 03 03 03 \n01 02 03 04 \n"},
        {MfrNvFaultLog::CODE, std::string(255, '\xf0'),
         "Command: dc 255 01 01 01 \n" + block255 + "\n"},
    };
    for (const auto& [code, bytes, text] : cases) {
        const auto command = create(code);
        command->setData(reinterpret_cast<const std::uint8_t*>(bytes.data()));
        EXPECT_EQ(text, command->toString());
        EXPECT_EQ(bytes, bytesOf(*command));
    }
}

TEST_F(CommandTest, GetDataTellsTheStatusOfTheLastTransfer)
{
    for (const unsigned int code : {0x03, 0x00, 0x25, 0x9D}) {
        const auto command = create(code);
        std::uint8_t bytes[8] = {};
        EXPECT_FALSE(command->getData(bytes));
        command->setStatus(true);
        EXPECT_TRUE(command->getData(bytes));
        command->setData(bytes);
        EXPECT_TRUE(command->getStatus());
    }
}

TEST_F(CommandTest, ABlockLoadedAnewKeepsNoStaleBytes)
{
    struct Observed : MfrTimeCount {
        using BlockCommand::m_data;
        void growTo(std::uint8_t size) { m_dataSize = size; }
    } block;
    const std::uint8_t bytes[6] = {1, 2, 3, 4, 5, 6};
    block.growTo(6);
    block.setData(bytes);
    block.growTo(4);
    block.setData(bytes);
    EXPECT_EQ(4, block.m_data[3]);
    EXPECT_EQ(0, block.m_data[4]);
}

TEST_F(CommandTest, Comparisons)
{
    Page page;
    Page samePage;
    Page otherPage;
    otherPage.setByte(1);
    OnOffConfig onOff; // a byte register with the rights of PAGE
    Operation operation;
    VoutMarginHigh word;
    VoutMarginHigh otherWord;
    otherWord.setWord(0x100);
    MfrTimeCount block4;
    MfrDate block8;
    const std::uint8_t bytes[8] = {0, 0, 0, 0, 1, 0, 0, 0};
    block8.setData(bytes);
    MfrDate otherBlock8;
    ClearFaults clear;
    StoreDefaultAll store;
    samePage.setStatus(true);

    const struct {
        const Command& left;
        const Command& right;
        bool compare;
        bool equal;
    } cases[] = {
        {page, samePage, true, true},    {page, otherPage, false, false},
        {page, onOff, true, false},      {page, operation, true, false},
        {page, word, false, false},      {word, page, false, false},
        {word, otherWord, false, false}, {block4, block8, true, false},
        {block8, block4, false, false},  {block8, otherBlock8, false, false},
        {block8, word, false, false},    {clear, page, true, false},
        {clear, store, true, false},
    };
    int number = 0;
    for (const auto& [left, right, compare, equal] : cases) {
        EXPECT_EQ(compare, left.compare(&right)) << number;
        EXPECT_EQ(equal, left == right) << number;
        EXPECT_EQ(!compare, left != right) << number;
        ++number;
    }
    EXPECT_TRUE(clear.compare(nullptr));
    EXPECT_FALSE(page.compare(nullptr));
    EXPECT_FALSE(word.compare(nullptr));
    EXPECT_FALSE(block4.compare(nullptr));
}

TEST_F(CommandTest, ComparisonsLeaveEntryTraces)
{
    Page page;
    EXPECT_TRUE(page == page);
    EXPECT_FALSE(page != page);
    EXPECT_TRUE(VoutMarginHigh() == VoutMarginHigh());
    EXPECT_TRUE(MfrDate().compare(&page) || ClearFaults().compare(&page));
    EXPECT_EQ("<7>[DEBUG] command.cpp (operator==) - \n"
              "<7>[DEBUG] command.cpp (compare) - \n"
              "<7>[DEBUG] command.cpp (operator!=) - \n"
              "<7>[DEBUG] command.cpp (compare) - \n"
              "<7>[DEBUG] command.cpp (operator==) - \n"
              "<7>[DEBUG] command.cpp (compare) - \n"
              "<7>[DEBUG] command.cpp (compare) - \n",
              transcript());
}

} // namespace
