#include "commandCatalogue.h"

#include <memory>

#include "fakeSystem.h"

namespace {

using CommandTest = SystemTest;

std::unique_ptr<Command> create(unsigned int code)
{
    return std::unique_ptr<Command>(Command::create(code));
}

TEST_F(CommandTest, TheCatalogueMakesEachCommand)
{
    setTraceLevel(0);
    for (unsigned int code = 0; code <= 0x1FF; ++code) {
        const auto command = create(code);
        const catalogue::Row* const row = catalogue::find(code);
        ASSERT_EQ(command != nullptr, row != nullptr) << code;
        if (command != nullptr) {
            EXPECT_EQ(code, command->getCode());
            EXPECT_EQ(row->size, command->getDataSize()) << code;
        }
    }
}

TEST_F(CommandTest, ACodeOutsideTheCatalogueIsRefused)
{
    for (const auto& [code, digits] : {std::pair{0x04U, "04"}, {0xFEU, "fe"}, {0x1FFU, "1ff"}}) {
        EXPECT_EQ(nullptr, create(code));
        EXPECT_EQ(std::string("ERROR create: Command ") + digits + " not found\n", transcript());
    }
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
    const OnOffConfig onOff; // with the rights of PAGE
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
        {page, onOff, true, false},
        {page, word, false, false},
        {word, page, false, false},
        {word, make(VoutMarginHigh(), low), false, false},
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
        {ClearFaults(), StoreDefaultAll(), true, false},
    };
    for (const auto& [left, right, compare, equal] : cases) {
        const std::string name = left.toString() + right.toString();
        EXPECT_EQ(compare, left.compare(&right)) << name;
        EXPECT_EQ(equal, left == right) << name;
        EXPECT_EQ(!compare, left != right) << name;
        EXPECT_EQ(left.getDataSize() == 0, left.compare(nullptr)) << name;
    }
}

TEST_F(CommandTest, ComparisonsLeaveEntryTraces)
{
    const std::string compared = "DEBUG compare: \n";
    EXPECT_EQ("DEBUG operator==: \n" + compared + "true\n", recordResult([] { return Page() == Page(); }));
    EXPECT_EQ("DEBUG operator!=: \n" + compared + "false\n", recordResult([] { return Page() != Page(); }));
    EXPECT_EQ(compared + "false\n", recordResult([] { return VoutMarginHigh().compare(nullptr); }));
    EXPECT_EQ(compared + "false\n", recordResult([] { return MfrDate().compare(nullptr); }));
    EXPECT_EQ("true\n", recordResult([] { return ClearFaults().compare(nullptr); }));
}

} // namespace
