// pmfile's commands on files: lists and their files, complaints, differences.
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <regex>
#include <span>

#include "check.h"
#include "diff.h"
#include "fakeSystem.h"
#include "list.h"
#include "listLine.h"
#include "messages.h"
#include "names.h"
#include "readChip.h"
#include "show.h"
#include "textFile.h"
#include "values.h"

namespace {

class PmfileTest : public SystemTest {
protected:
    PmfileTest()
    {
        programName = "pmfile";
        boardNames.clear();
    }

    /// What a command prints, its lines after "> " and "! ", and its status; the folder's name is left out.
    std::string outcome(const std::function<int()>& command) const
    {
        const std::string text =
            std::regex_replace(record([&] { fakeSystem.transcript += "status " + std::to_string(command()); }),
                               std::regex(m_folder + "/"), "");
        return text.substr(text.find("status")) + "\n" + text.substr(0, text.find("status"));
    }

    /// Makes a file of a list, its lines given with what has to be said of them, and nothing where that is empty.
    void expectMistakes(std::span<const std::pair<const char*, const char*>> lines, const Allowed& allowed) const
    {
        std::string list;
        std::string messages;
        int number = 0;
        for (const auto& [line, message] : lines) {
            list += std::string(line) + "\n";
            ++number;
            messages += *message == '\0' ? "" : "! pmfile: list:" + std::to_string(number) + ": " + message + "\n";
        }
        EXPECT_EQ("status 2\n" + messages + "! pmfile: made.hex was not made\n",
                  outcome([&] { return make(write("list", list), m_folder + "/made.hex", allowed); }));
    }
};

std::string readAll(const std::string& path)
{
    std::string text;
    std::string error;
    EXPECT_TRUE(readText(path, text, error)) << error;
    return text;
}

/// A file of these data bytes, given as digits, with optional blanks.
std::string fileOf(std::string digits)
{
    std::erase(digits, ' ');
    std::vector<std::uint8_t> bytes;
    EXPECT_TRUE(readHexBytes(digits, bytes)) << digits;
    return pmDataFile::makeRecords(bytes.data(), bytes.size());
}

// Entries of every kind that pmadmin loads, well or badly chosen.
std::vector<std::uint8_t> randomEntries(std::mt19937& random)
{
    const auto below = [&random](std::size_t limit) { return static_cast<std::uint8_t>(random() % limit); };
    std::vector<std::uint8_t> bytes;
    for (int count = 1 + below(50); count > 0; --count) {
        const bool known = below(8) != 0;
        const std::uint8_t code = known ? catalogue::ROWS[below(std::size(catalogue::ROWS))].code : below(256);
        const catalogue::Row* const row = catalogue::find(code);
        const int length = std::min((row == nullptr ? below(20) : row->size) + (below(8) == 0 ? 1 : 0), 255);
        bytes.insert(bytes.end(), {static_cast<std::uint8_t>(length), code});
        const std::uint8_t style = below(4);
        for (int i = 0; i < length; ++i) {
            constexpr std::uint8_t STYLES[] = {0, 'A', ' ', 0x7F};
            bytes.push_back(style == 3 ? below(256) : STYLES[below(style + 2U)]);
        }
    }
    return bytes;
}

TEST_F(PmfileTest, MakeIsTheInverseOfSource)
{
    std::mt19937 random(1); // NOLINT: the same files each time
    for (int i = 0; i < 300; ++i) {
        const std::vector<std::uint8_t> entries = randomEntries(random);
        const std::string text = pmDataFile::makeRecords(entries.data(), entries.size());
        const std::string file = write("file.hex", text);
        FILE* const output = std::exchange(stdout, std::fopen((m_folder + "/list").c_str(), "w"));
        ASSERT_EQ(0, source(file)) << text;
        std::fclose(std::exchange(stdout, output));
        const std::string list = m_folder + "/list";
        const auto equality = [&](const std::string& one, const std::string& other) {
            return std::regex_replace(outcome([&] { return diff(one, other, false); }), std::regex("!.*\n"), "");
        };
        ASSERT_EQ(0, make(list, m_folder + "/made.hex", {"all"})) << readAll(list);
        ASSERT_EQ(text, readAll(m_folder + "/made.hex")) << readAll(list);
        ASSERT_EQ("status 0\n", equality(file, m_folder + "/made.hex"));
        std::string other = text;
        other.erase(other.rfind(":00000001FF"));
        ASSERT_EQ("status 0\n", equality(file, write("cut.hex", other))) << "whatever its records";
        ASSERT_EQ(0U, outcome([&] { return show(file, false); }).find("status 0\n> "));
    }
}

TEST_F(PmfileTest, SourceOfACanonicalListGivesItBack)
{
    const std::string list =
        "MFR_MODE                0x0123\n"
        "\n[channel 0]\n"
        "VOUT_OV_FAULT_LIMIT     0x8000\nVOUT_OV_WARN_LIMIT      32.767 V\n"
        "VOUT_SCALE_MONITOR      0.125\nTON_DELAY               6553.4 ms\n"
        "MFR_SEQ_TIMESLOT        7\nCLEAR_FAULTS\n"
        "\n[sensor 4]\nOT_WARN_LIMIT           -12.5 °C\nOT_FAULT_LIMIT          327.67 °C\n"
        "\n[page 200]\nraw 05\nraw 42 28 32 07\nraw 00 03 04\n"
        "\n[device]\nMFR_SERIAL              \"A #1\"\nMFR_LOCATION            0x3130313031303100\n"
        "MFR_TIME_COUNT          0x01020304\nMFR_DATE                48.49 hw 49 0x3031303130\n";
    const std::string made = m_folder + "/made.hex";
    const mode_t mask = umask(027);
    EXPECT_EQ("status 0\n", outcome([&] { return make(write("list", list), made, {"all"}); }));
    EXPECT_EQ(027U, umask(mask)) << "as it was before";
    EXPECT_EQ("status 0\n" + list, std::regex_replace(outcome([&] { return source(made); }), std::regex("> "), ""));
}

TEST_F(PmfileTest, MakeTellsEachMistakeOfAListAndWhatWouldBeRight)
{
    // Behind the first a byte order mark; where the place is not known, values alone are judged.
    const std::pair<const char*, const char*> lines[] = {
        {"\uFEFFOPERATION 0x80", "the register is before the first section; write [channel N], [sensor N] or "
                                 "[device] above it, or give --allow before-page"},
        {"[channel 12]", "write [channel 0] to [channel 11], optionally followed by a name"},
        {"[sensor 5 X]", "write [sensor 0] to [sensor 4], optionally followed by a name"},
        {"[page 256]", "write [page 0] to [page 255], optionally followed by a name"},
        {"[supply 1]", "write [channel N], [sensor N], [device], [page N] or [template NAME]"},
        {"[device", "a [section] ends with ]"},
        {"[device]", ""},
        {"TON_DELAY 1 ms", "error: TON_DELAY can't be written on the device (access)"},
        {"[sensor 0] X]", "there is text after the ] of the section; a comment begins with #"},
        {"TON_DELAY 1 ms", ""},
        {"VOUT\u0085\u202E\xA0 1 V",
         "there is no register VOUT\\xC2\\x85\\xE2\\x80\\xAE\\xA0; write a register's name, "
         "or raw, its command code and its bytes"},
        {"VOUT_OV_WARN_LIMIT 12.84 # V", "VOUT_OV_WARN_LIMIT '12.84': write its unit, too: 12.840 V"},
        {"VOUT_OV_WARN_LIMIT 3300", "VOUT_OV_WARN_LIMIT '3300': it has steps of 0.001 V, from 0.000 V to 32.767 V"},
        {"VOUT_OV_WARN_LIMIT 12,000 V", "VOUT_OV_WARN_LIMIT '12,000 V': write a point in place of the comma: 12.000 V"},
        {"VOUT_OV_WARN_LIMIT 12\u00A0V", "the line contains a no-break space; write a blank instead"},
        {"VOUT_OV_WARN_LIMIT 12 mV", "VOUT_OV_WARN_LIMIT '12 mV': its unit is V: write it as in 2.200 V"},
        {"VOUT_OV_WARN_LIMIT", "VOUT_OV_WARN_LIMIT '': write a number and its unit, as in 2.200 V"},
        {"OT_WARN_LIMIT 85 degC", "OT_WARN_LIMIT '85 degC': write °C in place of degC: 85 °C"},
        {"TON_DELAY 5.1 ms", "TON_DELAY '5.1 ms': it has steps of 0.2 ms, from 0 ms to 6553.4 ms: write 5.2 ms"},
        {"TON_DELAY 5.2000000000 ms", ""},
        {"VOUT_SCALE_MONITOR 1.1", "VOUT_SCALE_MONITOR '1.1': write a ratio above 0 and up to 1, as in 0.125"},
        {"VOUT_SCALE_MONITOR 0.12345678901234567890", ""},
        {"VOUT_SCALE_MONITOR 0.00001", "VOUT_SCALE_MONITOR '0.00001': write a ratio above 0 and up to 1, as in 0.125"},
        {"VOUT_SCALE_MONITOR 0,5 V", "VOUT_SCALE_MONITOR '0,5 V': write a point in place of the comma"},
        {"VOUT_OV_WARN_LIMIT inf V", "VOUT_OV_WARN_LIMIT 'inf V': write a number and its unit, as in 2.200 V"},
        {"OT_WARN_LIMIT -328 °C", "OT_WARN_LIMIT '-328 °C': it has steps of 0.01 °C, from -327.68 °C to 327.67 °C"},
        {"MFR_MODE 0x10000", "MFR_MODE '0x10000': write 0x0000 to 0xFFFF"},
        {"MFR_PSEN_CONFIG 0x1G", "MFR_PSEN_CONFIG '0x1G': write 0x00 to 0xFF"},
        {"MFR_SEQ_TIMESLOT 256", "MFR_SEQ_TIMESLOT '256': write a number from 0 to 255, or in hexadecimal after 0x"},
        {"MFR_MODE 65536", "MFR_MODE '65536': write 0x0000 to 0xFFFF"},
        {"MFR_MODE 1105", "MFR_MODE '1105': bit fields are written in hexadecimal: write MFR_MODE 0x1105, or MFR_MODE "
                          "0x0451 if 1105 is decimal"},
        {"OPERATION 128", "OPERATION '128': bit fields are written in hexadecimal: write OPERATION 0x80"},
        {"MFR_SERIAL A01", "MFR_SERIAL 'A01': write up to 8 ASCII characters in quotes, as in \"RACK A01\""},
        {"MFR_SERIAL \"123456789\"",
         "MFR_SERIAL '\"123456789\"': write up to 8 ASCII characters in quotes, as in \"RACK A01\""},
        {"MFR_SERIAL \"", "MFR_SERIAL '\"': write up to 8 ASCII characters in quotes, as in \"RACK A01\""},
        {"MFR_SERIAL \"a\"b\"", "MFR_SERIAL '\"a\"b\"': write up to 8 ASCII characters in quotes, as in \"RACK A01\""},
        {"MFR_SERIAL \"é\"", "MFR_SERIAL '\"é\"': write up to 8 ASCII characters in quotes, as in \"RACK A01\""},
        {"MFR_SERIAL 0x12", "MFR_SERIAL '0x12': write 8 bytes, 16 hexadecimal digits after 0x"},
        {"MFR_DATE 2.256 hw 3",
         "MFR_DATE '2.256 hw 3': write the version and the minimum hardware version, each number "
         "up to 255, as in 2.5 hw 3"},
        {"MFR_DATE 2.5 hw 3 0xFF",
         "MFR_DATE '2.5 hw 3 0xFF': write the version and the minimum hardware version, each number "
         "up to 255, as in 2.5 hw 3"},
        {"MFR_DATE 2,5 hw 3", "MFR_DATE '2,5 hw 3': write the version and the minimum hardware version, each number "
                              "up to 255, as in 2.5 hw 3"},
        {"vout_ov_warn_limit 1 V", "there is no register vout_ov_warn_limit; did you mean VOUT_OV_WARN_LIMIT?"},
        {"TOM_DELAY 1 ms", "there is no register TOM_DELAY; did you mean TON_DELAY?"},
        {"VOUT_SCALE_MONITOR 1/8", ""},
        {"VOUT_SCALE_MONITOR 9/8", "VOUT_SCALE_MONITOR '9/8': write a ratio above 0 and up to 1, as in 0.125"},
        {"VOUT_SCALE_MONITOR 1/0", "VOUT_SCALE_MONITOR '1/0': write a ratio above 0 and up to 1, as in 0.125"},
        {"MFR_CHANNEL_NOMINAL +5 %",
         "MFR_CHANNEL_NOMINAL '+5 %': the others are in per cent of this voltage; write it in V"},
        {"VOUT_OV_WARN_LIMIT 8 %", "VOUT_OV_WARN_LIMIT '8 %': write +8 % or -8 %: above or below the nominal voltage"},
        {"VOUT_OV_WARN_LIMIT +8.125 %",
         "VOUT_OV_WARN_LIMIT '+8.125 %': write a percentage with up to two decimals, as in +12 % or -8.25 %"},
        {"TON_DELAY +8 %", "TON_DELAY '+8 %': write a number and its unit, as in 2.2 ms"},
        {"CLEAR_FAULTS 1", "CLEAR_FAULTS '1': write no value: it has no data"},
        {"raw 4", "write the command code and up to 255 data bytes, two hexadecimal digits each, as in raw 42 28 32"},
    };
    expectMistakes(lines, {});
    const std::string made = m_folder + "/made.hex";
    const std::string complaint = "! pmfile: list:2: error: OPERATION of channel 0 is not a setting: the chip does not "
                                  "keep it in flash (no-setting)\n"
                                  "! pmfile: add --allow no-setting to make the file anyway\n";
    const std::string operation = write("list", "[channel 0]\nOPERATION 0x80\n[device]\nMFR_DATE 1.0 hw 0\n");
    EXPECT_EQ("status 2\n" + complaint + "! pmfile: made.hex was not made\n", outcome([&] {
                  return make(operation, made, {"access", "partial"});
              }));
    EXPECT_FALSE(std::filesystem::exists(made));
    EXPECT_EQ("status 0\n", outcome([&] { return make(operation, made, {"no-setting", "partial"}); }));
    EXPECT_EQ("status 2\n" + complaint + "! pmfile: made.hex is left as it was\n",
              outcome([&] { return make(operation, made, {"partial"}); }));
    const std::string most =
        "[channel 0]\n" + std::regex_replace(std::string(16383, '.'), std::regex("."), "MFR_MODE 0x1\n");
    EXPECT_EQ("status 2\n! pmfile: list: has more than the 65,536 bytes that load addresses reach\n"
              "! pmfile: made.hex is left as it was\n",
              outcome([&] { return make(write("list", most + "TON_DELAY 1 ms\n"), made, {"all"}); }));
    EXPECT_EQ("status 0\n", outcome([&] { return make(write("list", most), made, {"all"}); }));
    const std::string data = std::regex_replace(std::string(255, '.'), std::regex("."), "00");
    EXPECT_EQ("status 0\n", outcome([&] { return make(write("list", "raw 05" + data), made, {"all"}); }));
    EXPECT_EQ(
        "status 2\n! pmfile: list:1: write the command code and up to 255 data bytes, two hexadecimal digits each, "
        "as in raw 42 28 32\n! pmfile: made.hex is left as it was\n",
        outcome([&] { return make(write("list", "raw 05" + data + "00"), made, {"all"}); }));
    EXPECT_NE(std::string::npos, outcome([&] {
                                     return make(write("list", "\n\n\n[channel 0]\nTON_DELAY 1 ms\n\n"), made,
                                                 {"partial"});
                                 }).find("list:5: warning: there is no version record"));
    EXPECT_EQ("status 2\n! pmfile: list: is the input, which would be lost\n"
              "! pmfile: list is left as it was\n",
              outcome([&] { return make(operation, operation, {"all"}); }));
}

const std::string CHANNEL = "010000 02422832"; // page 0 and a limit of 12.840 V
// Channel 3 as from the factory, but for the nominal voltage, which a model of the chip does not give back.
const std::string UNUSED = "010003 0225FF7F 02260000 022AFF7F 0240FF7F 0242FF7F 02430000 02440000 025E0000 025F0000 "
                           "02600000 02620000 02640000 01D200 01D300 02D90000 02DF0000";
const std::string VERSION = "0100FF 089D0102030000000000";

TEST_F(PmfileTest, MistakesWithTemplates)
{
    const std::pair<const char*, const char*> lines[] = {
        {"[template core]", ""},
        {"VOUT_OV_WARN_LIMIT +8 %",
         "VOUT_OV_WARN_LIMIT '+8 %': the list has no MFR_CHANNEL_NOMINAL above 0 V of channel "
         "1 to reckon this from; write it, too, or a voltage here"},
        {"use core", "a template is used below a section such as [channel 3]; a template uses none"},
        {"raw 00 03", "a template holds registers of any page; PAGE selects one"},
        {"unused", "unused stands below the section line of a channel or sensor"},
        {"[template core]", "there is a template core already, in line 1"},
        {"[template two words]", "a template has a name of one word, as in [template core]"},
        {"[template nobody]",
         "no section uses the template nobody; remove it, or write use nobody below a section line"},
        {"[channel 0]", ""},
        {"use none", "there is no template none; write [template none] above its registers"},
        {"use two words", "write the name of one template, as in use core"},
        {"use core", "a section uses one template"},
        {"[channel 1]", ""},
        {"use core", ""},
        {"VOUT_UV_WARN_LIMIT -101 %", "VOUT_UV_WARN_LIMIT '-101 %': the list has no MFR_CHANNEL_NOMINAL above 0 V of "
                                      "channel 1 to reckon this from; write it, too, or a voltage here"},
        {"[channel 2]", ""},
        {"MFR_CHANNEL_NOMINAL 30 V", ""},
        {"VOUT_OV_WARN_LIMIT +10 %", "VOUT_OV_WARN_LIMIT '+10 %': for channel 2 this is beyond 0.000 V to 32.767 V"},
        {"[channel 3]", ""},
        {"unused", "unused gives all settings of channel 3 their factory values; nothing stands beside it"},
        {"TON_DELAY 1 ms", ""},
        {"[channel 4]", ""},
        {"unused now", "write unused alone in its line"},
        {"unused", "channel 4 has another section, in line 25; keep one of them"},
        {"[channel 4 AGAIN]", ""},
        {"TON_DELAY 1 ms", ""},
    };
    expectMistakes(lines, {"all"});
}

// Whatever stands in templates and sections: the voltages are those of arithmetic in whole steps.
TEST_F(PmfileTest, TemplatesAndPercentagesStandForVoltages)
{
    const char* const NAMES[] = {"VOUT_OV_FAULT_LIMIT", "VOUT_OV_WARN_LIMIT", "VOUT_MARGIN_HIGH",
                                 "VOUT_MARGIN_LOW",     "VOUT_UV_WARN_LIMIT", "POWER_GOOD_ON"};
    std::minstd_rand random(7); // NOLINT: the same lists each time
    const auto below = [&random](unsigned int end) { return static_cast<int>(random() % end); };
    for (int i = 0; i < 100; ++i) {
        const int nominal = 1 + below(13000); // with 149.5 % more it is below 32.767 V
        std::string lists[2];                 // the one with percentages, and what it stands for
        const auto add = [&](std::string(&parts)[2], const char* name) {
            const int hundredths = below(3) == 0 ? 50 * below(300) : below(10000);
            const bool isAbove = hundredths > 10000 || below(2) == 0; // below it would be less than 0 V
            // Rounded at a half away from the nominal voltage, without the fractions of other numbers.
            int steps = nominal * hundredths / 10000;
            steps += 2 * (nominal * hundredths % 10000) >= 10000 ? 1 : 0;
            char lines[2][80];
            std::snprintf(lines[0], sizeof(lines[0]), "%s %c%d.%02d %%\n", name, isAbove ? '+' : '-', hundredths / 100,
                          hundredths % 100);
            std::snprintf(lines[1], sizeof(lines[1]), "%s %.3f V\n", name,
                          (nominal + (isAbove ? steps : -steps)) / 1000.0);
            parts[0] += lines[0];
            parts[1] += lines[1];
        };
        char first[64];
        std::snprintf(first, sizeof(first), "MFR_CHANNEL_NOMINAL %.3f V\n", nominal / 1000.0);
        lists[0] = "[template t]\nMFR_CHANNEL_NOMINAL 1 V\n";
        lists[1] = std::string("[channel 3]\n") + first;
        std::string own;
        std::string behind[2];
        for (const char* const name : NAMES) {
            std::string parts[2];
            add(parts, name);
            switch (below(4)) {
            case 0: // in the template alone
                lists[0] += parts[0];
                lists[1] += parts[1];
                break;
            case 1: // in both: the section's, in the template's place
                lists[0] += std::string(name) + " 1 V\n";
                lists[1] += parts[1];
                own += parts[0];
                break;
            case 2: // in the section alone
                behind[0] += parts[0];
                behind[1] += parts[1];
                break;
            default:
                break;
            }
        }
        lists[0] += "[channel 3 NAME]\n" + own + "use t\n" + behind[0] + first;
        lists[1] += behind[1];
        std::string files[2];
        for (int k = 0; k < 2; ++k) {
            const std::string made = m_folder + "/made.hex";
            ASSERT_EQ(0, make(write("list", lists[k]), made, {"all"})) << lists[k];
            files[k] = readAll(made);
        }
        ASSERT_EQ(files[1], files[0]) << lists[0] << lists[1];
    }
}

TEST_F(PmfileTest, ListsWhereFilesGo)
{
    const std::string list = write("list", "# a comment\n[template t]\nVOUT_OV_WARN_LIMIT +8 %\n[channel 3 CORE]\nuse "
                                           "t\nMFR_CHANNEL_NOMINAL 2 V\n[sensor 0]\nunused\n");
    EXPECT_EQ("status 0\n", outcome([&] { return make(list, m_folder + "/made.hex", {"all"}); }));
    EXPECT_EQ("status 0\n", outcome([&] { return diff(list, m_folder + "/made.hex", false); }));
    const std::string shown = outcome([&] { return show(list, false); });
    EXPECT_NE(std::string::npos, shown.find("page 3: channel 3 CORE\n")) << shown;
    EXPECT_NE(std::string::npos, shown.find("VOUT_OV_WARN_LIMIT      7008              2.160 V\n")) << shown;
    EXPECT_NE(std::string::npos, shown.find("page 13: sensor 0, unused\n")) << shown;
    std::string error;
    EXPECT_TRUE(readNames(list, boardNames, error)) << error;
    const std::string other = write("other", "[channel 3]\nTON_DELAY 0xFFFF\n[device]\nMFR_DATE 1.0 hw 0\n");
    boardNames.clear();
    EXPECT_EQ(
        "status 2\n> list:8: warning: there is no version record (MFR_DATE): the settings have version 0.0 and suit "
        "every board (no-version)\n> other:2: error: TON_DELAY of channel 3 is set to 0xFFFF, which its unit can't "
        "express: write 0 ms to 6553.4 ms (out-of-range)\n",
        outcome([&] {
            return check({list, other}, {"partial"});
        }));
    EXPECT_EQ(
        "status 2\n! pmfile: bad:2: there is no register X; write a register's name, or raw, its command code and "
        "its bytes\n! pmfile: bad:3: a [section] ends with ]\n",
        outcome([&] { return show(write("bad", "[channel 3]\nX\n[dev"), false); }));
}

// Each causes a complaint of a name at a line, which --allow silences.
TEST_F(PmfileTest, EachComplaintByItsName)
{
    const std::string sound = fileOf(CHANNEL + VERSION);
    const std::string first = sound.substr(0, sound.find('\n') + 1);
    const std::string end = ":00000001FF\n";
    const std::string second = sound.substr(first.size(), sound.size() - first.size() - end.size());
    const auto entries = [](const std::string& digits) { return fileOf("010003" + digits + VERSION); };
    const std::tuple<std::string, const char*, const char*> cases[] = {
        {"x" + first + second + end, "1: error: the line holds something other than hexadecimal", "broken-record"},
        {":1234\n" + sound, "1: error: the line is too short for a record", "stray-line"},
        {";" + first.substr(1) + second + end, "1: warning: the record begins with something other", "record-mark"},
        {first.substr(0, 41) + "00\n" + second + end, "1: error: the checksum is 00, but should be", "checksum"},
        {first + first + end, "2: error: the address is 0000, but should be 0010", "address"},
        {second + end, "1: error: the address is 0010, but should be 0000", "address"},
        {":0400000501000000F6\n" + sound, "1: error: the data in a record of type 05", "record-type"},
        {first + second, "2: error: the file ends without an end record", "end-record"},
        {sound + end, "4: error: there is a record after the end record", "end-record"},
        {first + second + ":00000001FF the end", "3: error: the text after the record", "surplus-text"},
        {fileOf(CHANNEL + "02425000 02"), "1: error: the entry at byte 11 is cut off", "broken-entry"},
        {entries("0105AA"), "1: error: no register has the command code 05", "unknown-command"},
        {entries("03423228AA"), "1: error: VOUT_OV_WARN_LIMIT has 3 data bytes, but the register has 2",
         "surplus-data"},
        {entries("01000C"), "1: error: the chip has no page 12", "no-such-page"},
        {entries("024F0010"), "1: error: OT_FAULT_LIMIT can't be written on channel 3", "access"},
        {entries("0100FF010180"), "1: error: OPERATION can't be read back on the device", "access"},
        {fileOf("02422832" + VERSION), "1: error: VOUT_OV_WARN_LIMIT can't be read back before the first", "access"},
        {entries("011040"), "1: error: WRITE_PROTECT of the device is not a setting", "no-setting"},
        {entries("02D10100 010004 02D10200"),
         "1: error: MFR_MODE of the device is set to 0x0002, but in line 1 to 0x0001", "conflict"},
        {entries("02D10100 010004 02D10100"),
         "1: warning: MFR_MODE of the device is set to the same value as in line 1", "repetition"},
        {fileOf(CHANNEL), "2: warning: there is no version record", "no-version"},
        {entries(VERSION), "2: warning: there is more than one version record", "several-versions"},
        {fileOf(CHANNEL + VERSION + "010004"), "1: warning: MFR_DATE is not the last entry", "version-last"},
        {fileOf("02D10100" + VERSION), "1: warning: there are entries before the first PAGE", "before-page"},
        {entries("0011"), "1: warning: STORE_DEFAULT_ALL is an action and is ignored", "action"},
        {entries("02440100 02430100"), "1: warning: VOUT_UV_FAULT_LIMIT (0.001 V) must be below VOUT_UV_WARN_LIMIT",
         "limit-order"},
        {entries("02EA6400 02426300 02405000"), "1: warning: VOUT_OV_WARN_LIMIT (0.099 V) must be below",
         "limit-order"},
        {entries("025F0100 025E0100"), "1: warning: POWER_GOOD_OFF (0.001 V) must be below POWER_GOOD_ON",
         "limit-order"},
        {entries("01000D 024F00F0 02510000"), "1: warning: OT_WARN_LIMIT (0 °C) must be below OT_FAULT_LIMIT",
         "limit-order"},
        {entries("0240FF7F"), "1: warning: VOUT_OV_FAULT_LIMIT of channel 3 is never reached", "no-limit"},
        {fileOf(UNUSED + "02EA0100" + VERSION), "1: warning: VOUT_OV_FAULT_LIMIT of channel 3 is never", "no-limit"},
        {entries("02EA0000"), "1: warning: MFR_CHANNEL_NOMINAL of channel 3 is 0 V", "no-nominal"},
        {entries("022A0000"),
         "1: error: VOUT_SCALE_MONITOR of channel 3 is set to 0x0000, which its unit can't express: write a ratio "
         "above 0 and up to 1",
         "out-of-range"},
        {entries("0260FFFF"),
         "1: error: TON_DELAY of channel 3 is set to 0xFFFF, which its unit can't express: write 0 ms to 6553.4 ms",
         "out-of-range"},
        {entries("089C4120202020202020"), "1: warning: MFR_LOCATION of the device is set to \"A\", which", "identity"},
        {entries("02EA0100 02422832 02600500 02620000 010004 02430100 010003 010004 02600500"),
         "2: warning: the file sets 2 of the 17 settings of channel 4: it lacks VOUT_MARGIN_HIGH, VOUT_MARGIN_LOW, "
         "VOUT_SCALE_MONITOR and 12 more, for which the chip keeps its old values; set all of them",
         "partial"},
        {entries("01000F 02F00000"),
         "1: warning: the file sets 1 of the 3 settings of sensor 2: it lacks OT_FAULT_LIMIT and OT_WARN_LIMIT, for",
         "partial"},
        {fileOf(CHANNEL + "02430100 02440100 02600500 02D10100"),
         "2: warning: the file sets 1 of the 7 settings of the device", "partial"},
        {fileOf(CHANNEL + VERSION + "010000 02D10100"), "1: warning: the file sets 1 of the 7 settings of the device",
         "partial"},
        {entries("02EA0100 01000F"),
         "3: warning: the file sets nothing of channels 0 to 2, channels 4 to 11, sensors 0 to 4 and the device: the "
         "chip keeps what it holds there",
         "partial"},
        {fileOf(UNUSED + VERSION), "6: warning: the file sets no channel's MFR_CHANNEL_NOMINAL", "partial"},
        {entries("02EAE40C 02405713"),
         "1: warning: VOUT_OV_FAULT_LIMIT of channel 3 (4.951 V) is farther than 50 % from the nominal voltage (3.300 "
         "V) and protects nothing: write 3.332 V to 4.950 V",
         "limit-width"},
        {entries("02EAE40C 0243C50C"),
         "1: warning: VOUT_UV_WARN_LIMIT of channel 3 (3.269 V) is nearer than 1 % to the nominal voltage (3.300 V) "
         "and trips on noise: write 1.650 V to 3.268 V",
         "limit-width"},
        {entries("022AFF7F 02440108"),
         "1: warning: VOUT_UV_FAULT_LIMIT of channel 3 (2.049 V) times VOUT_SCALE_MONITOR (1.0) is above 2.048 V, the "
         "largest full scale known from related chips",
         "unreachable-limit"},
    };
    for (const auto& [content, finding, name] : cases) {
        const std::string file = write("file.hex", content);
        const std::string line = "> file.hex:" + std::string(finding);
        const std::string text = outcome([&] { return check({file}, {}); });
        const std::size_t at = text.find(line);
        ASSERT_NE(std::string::npos, at) << line << "\nis not in\n" << text << content;
        EXPECT_EQ("(" + std::string(name) + ")\n",
                  text.substr(text.find('(' + std::string(name), at), std::strlen(name) + 3));
        EXPECT_EQ(text.find("error: ") == std::string::npos ? '1' : '2', text[7]) << text;
        const Allowed allowed{name};
        EXPECT_EQ(std::string::npos, outcome([&] { return check({file}, allowed); }).find(line)) << name;
        EXPECT_EQ("status 0\n", outcome([&] { return check({file}, {"all"}); }));
    }
    const std::string crlf = first.substr(0, 43) + "\r\n" + second.substr(0, second.size() - 1) + "\r\n\r\n:00000001FF";
    const std::string unused = fileOf(UNUSED + VERSION);
    const std::string atBounds = entries("02EAE40C 02405613 0242040D 0243C40C 02447206 010004 022AFF7F 02400008");
    EXPECT_EQ(
        "status 2\n! pmfile: empty.hex: contains no entries\n> empty.hex:1: error: the file ends "
        "without an end record (end-record)\n"
        "> empty.hex:1: warning: there is no version record (MFR_DATE): the settings have version 0.0 and suit every "
        "board (no-version)\n"
        "! pmfile: none.hex: cannot be read: No such file or directory\n",
        outcome([&] {
            return check({write("sound.hex", sound), write("crlf.hex", crlf), write("unused.hex", unused),
                          write("bounds.hex", atBounds), write("empty.hex", ""), m_folder + "/none.hex"},
                         {"partial"});
        }));
    EXPECT_FALSE(areComplaints("allow", {"address", "adress"}));
}

// Findings come in the order of lines; those that need whole records or entries wait until there are such.
TEST_F(PmfileTest, CheckFromTheFirstLineToTheLast)
{
    const std::string records = fileOf("0105AA 024F0010 010003 0105BB 02430000 02421400 0142");
    const std::string cut = write("cut.hex", ";12\n" + records);
    const std::string broken = write("broken.hex", std::string(records).replace(12, 1, "x"));
    // Limits 0.033 and 0.032 V from 3.301 V, one that the full scale may just reach, as its ratio is rounded, and one
    // beside a nominal voltage that is not set.
    const std::string limits =
        write("limits.hex", fileOf("010003 02EAE50C 0243C40C 0242050D 010004 02EA000B 022A0040 02420010"
                                   "010005 02EA0000 0243E803"
                                   + VERSION));
    EXPECT_EQ(R"(status 2
> cut.hex:1: error: the line is too short for a record and is ignored (stray-line)
> cut.hex:2: error: no register has the command code 05: the entry is left out (unknown-command)
> cut.hex:2: error: no register has the command code 05: the entry is left out (unknown-command)
> cut.hex:2: error: OT_FAULT_LIMIT can't be written before the first page (access)
> cut.hex:2: warning: there are entries before the first PAGE: nothing selects their page (before-page)
> cut.hex:3: error: the entry at byte 21 (command 42) runs past the end of the data (broken-entry)
> broken.hex:1: error: the line holds something other than hexadecimal digits (broken-record)
> limits.hex:1: warning: VOUT_OV_WARN_LIMIT of channel 3 (3.333 V) is nearer than 1 % to the nominal voltage (3.301 V) and trips on noise: write 3.334 V to 4.951 V (limit-width)
> limits.hex:3: warning: MFR_CHANNEL_NOMINAL of channel 5 is 0 V, though the channel is used (no-nominal)
)",
              outcome([&] {
                  return check({cut, broken, limits}, {"partial"});
              }));
}

// Any damage to a sound file is noticed.
TEST_F(PmfileTest, DamagesAreNoticed)
{
    const std::string sound = readAll(EXAMPLES "/board-a.hex");
    int unnoticed = 0;
    int damages = 0;
    const auto damage = [&](const std::string& text) {
        ++damages;
        unnoticed += isList(text) || findComplaints(PmFile("", text), {}).empty() ? 1 : 0;
    };
    EXPECT_TRUE(findComplaints(PmFile("", sound), {}).empty());
    for (std::size_t begin = 0, end; begin < sound.size(); begin = end) {
        end = sound.find('\n', begin) + 1;
        const std::size_t next = sound.find('\n', end) + 1;
        const std::string before = sound.substr(0, begin);
        const std::string line = sound.substr(begin, end - begin);
        damage(before + sound.substr(end));
        damage(before + line + line + sound.substr(end));
        if (next > end) {
            damage(before + sound.substr(end, next - end) + line + sound.substr(next));
        }
    }
    for (std::size_t at = 0; at + 1 < sound.size(); ++at) {
        damage(sound.substr(0, at));
        if (sound[at] != '\n') {
            damage(std::string(sound).replace(at, 1, sound[at] == ':' ? "[" : sound[at] == '0' ? "8" : "0"));
        }
    }
    EXPECT_LT(5000, damages);
    EXPECT_EQ(0, unnoticed);
}

TEST_F(PmfileTest, Differences)
{
    const std::string before = write("old.hex", fileOf("010003 02422832 02600500 0100FF 02D10100"
                                                       "089E4130312020202020 089D0102030000000000 0105AA"));
    const std::string after =
        write("new.hex", fileOf("0003 0100FF 02D10100 010003 02600500 010003 02429832 02430000 01000D"
                                "089E4130322020202020 089D0202030000000000 0105AB"));
    EXPECT_EQ("status 1\n! pmfile: new.hex:1: CLEAR_FAULTS is not compared: it is an action, which pmadmin ignores\n"
              "> version: MFR_DATE: 2.1 hw 3 -> 2.2 hw 3\n"
              "> channel 3: VOUT_OV_WARN_LIMIT: 12.840 V -> 12.952 V\n"
              "> channel 3: VOUT_UV_WARN_LIMIT: only in new.hex: 0.000 V\n"
              "> sensor 0: command 05: only in new.hex: AB\n"
              "> device: command 05: only in old.hex: AA\n"
              "> identity: MFR_SERIAL: \"A01\" -> \"A02\"\n",
              outcome([&] { return diff(before, after, false); }));
    EXPECT_EQ("status 2\n! pmfile: none.hex: cannot be read: No such file or directory\n",
              outcome([&] { return diff(before, m_folder + "/none.hex", false); }));
    EXPECT_EQ("status 2\n! pmfile: x:1: the line ends before its checksum\n",
              outcome([&] { return diff(write("x", ":0100000000\n"), before, false); }));
    EXPECT_EQ("status 2\n! pmfile: x:1: the entry at byte 0 is cut off behind its length\n",
              outcome([&] { return show(write("x", ":010000000100\n"), false); }));
    EXPECT_EQ("status 2\n! pmfile: x: contains no entries\n",
              outcome([&] { return source(write("x", ":00000001FF\n")); }));
}

// What is no setting acts at once, on what stands before it: the same in another order leaves another chip.
TEST_F(PmfileTest, OrdersThatCount)
{
    const std::string limit = "VOUT_OV_WARN_LIMIT of channel 3 to 12.840 V";
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"010003 02422832 02600500 011080 02D10100", "010003 02600500 02422832 011080 02D10100", ""},
        {"010003 02422832 0105AA 0011", "0011 010004 010003 02422832 0105AA", ""},
        {"010003 011080 02422832", "010003 02422832 011080", "line 1 of old sets " + limit + "; new ends"},
        {"010003 010180 010004 010180", "010004 010180 010003 010180",
         "line 1 of old sets OPERATION of channel 3 to 0x80; line 1 of new sets OPERATION of channel 4 to 0x80"},
        {"010003 02422832 011080", "010003 011080 02422832", "old ends; line 1 of new sets " + limit},
        {"010003 02422832 011080 02422832", "010003 011080 02422832",
         "line 1 of old sets " + limit + "; new does so later"},
        {"0100FF 011080 010003 02422832 010004 02422832", "0100FF 011080 010004 02422832 010003 02422832",
         "line 1 of old selects channel 3; line 1 of new selects channel 4"},
    };
    for (const auto& [before, after, parting] : cases) {
        const std::string old = write("old", fileOf(before));
        const std::string changed = write("new", fileOf(after));
        const std::string text = outcome([&] { return diff(old, changed, false); });
        EXPECT_EQ(parting.empty() ? "0" : "1> order: " + parting + "\n",
                  text[7] + text.substr(std::min(text.find("> "), text.size())))
            << text;
    }
    const std::string set = write("old", fileOf("010003 02422832"));
    EXPECT_EQ("status 0\n! pmfile: new:1: WRITE_PROTECT of the device is not compared: it is not a setting\n"
              "! pmfile: new:1: command 05 of channel 3 is not compared: it is not a setting\n",
              outcome([&] { return diff(set, write("new", fileOf("010003 011080 0105AA 02422832")), true); }));
}

TEST_F(PmfileTest, Show)
{
    const std::string file = write(
        "file.hex", fileOf("02D10000 010003 02600500 02422832 0011 01000D 024FFF7F 0251FF7F 02F00000 0105AA 028B0100"
                           "01000E 024FFF7F 0100FF 010216 089E4130312020202020"
                           + VERSION.substr(6)));
    EXPECT_EQ("status 0\n> file.hex: settings 2.1, for hardware 3 and later\n> \n> before the first page\n"
              ">     0  D1  MFR_MODE                0000              0x0000       acts at once\n"
              "> \n> page 3: channel 3\n"
              ">     1  00  PAGE                    03\n"
              ">     2  60  TON_DELAY               0500              1 ms\n"
              ">     3  42  VOUT_OV_WARN_LIMIT      2832              12.840 V\n"
              ">     4  11  STORE_DEFAULT_ALL                                      ignored\n"
              "> \n> page 13: sensor 0, unused\n"
              ">     5  00  PAGE                    0D\n"
              ">     6  4F  OT_FAULT_LIMIT          FF7F              327.67 °C\n"
              ">     7  51  OT_WARN_LIMIT           FF7F              327.67 °C\n"
              ">     8  F0  MFR_TEMP_SENSOR_CONFIG  0000              0x0000\n"
              ">     -  05  command 05              AA                             unknown, left out\n"
              ">     9  8B  READ_VOUT               0100              0.001 V      can't be written\n"
              "> \n> page 14: sensor 1\n"
              ">    10  00  PAGE                    0E\n"
              ">    11  4F  OT_FAULT_LIMIT          FF7F              327.67 °C\n"
              "> \n> page 255: device\n"
              ">    12  00  PAGE                    FF\n"
              ">    13  02  ON_OFF_CONFIG           16                0x16         acts at once\n"
              ">    14  9E  MFR_SERIAL              4130312020202020  \"A01\"        identity\n"
              ">    15  9D  MFR_DATE                0102030000000000  settings 2.1, for hardware 3 and later\n"
              "> \n> Times count in steps of 0.2 ms, which is known from related chips only.\n"
              "> \n> 17 entries in 6 records, 72 bytes: 1 channel and 2 sensors, 1 of them unused; 14 written, 3 not\n",
              outcome([&] { return show(file, false); }));
}

// Its name has quotes, controls, and what is no UTF-8: an overlong form, half of a UTF-16 pair, a code that is too
// high, and a character that is cut off.
TEST_F(PmfileTest, ShowAsJson)
{
    const std::string file = write("\"\\\1\x7F\u00E9\u0085\u2029\xC0\x80\xED\xA0\x80\xF4\x90\x80\x80\xE2\x82",
                                   fileOf("02D10000 01000D 024FFF7F 0251FF7F 02F00000 0105AA 010003 0240FFFF"
                                          "0100FF 010216"
                                          + VERSION.substr(6)));
    boardNames = {{3, "CORE"}};
    EXPECT_EQ(R"(status 0
> {"file": "\"\\\u0001\u007fé\u0085\u2029\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd",
>  "version": {"major": 2, "minor": 1, "minimumHardware": 3},
>  "unusedPages": [13],
>  "names": [{"page": 3, "place": "channel 3", "name": "CORE"}],
>  "entries": [
>   {"line": 1, "index": 0, "page": null, "place": "before the first page", "code": 209, "name": "MFR_MODE", "bytes": "00 00", "value": "0x0000", "number": null, "marks": ["acts at once"]},
>   {"line": 1, "index": 1, "page": 13, "place": "sensor 0", "code": 0, "name": "PAGE", "bytes": "0D", "value": "0x0D", "number": null, "marks": []},
>   {"line": 1, "index": 2, "page": 13, "place": "sensor 0", "code": 79, "name": "OT_FAULT_LIMIT", "bytes": "FF 7F", "value": "327.67 °C", "number": 327.67, "marks": []},
>   {"line": 1, "index": 3, "page": 13, "place": "sensor 0", "code": 81, "name": "OT_WARN_LIMIT", "bytes": "FF 7F", "value": "327.67 °C", "number": 327.67, "marks": []},
>   {"line": 1, "index": 4, "page": 13, "place": "sensor 0", "code": 240, "name": "MFR_TEMP_SENSOR_CONFIG", "bytes": "00 00", "value": "0x0000", "number": null, "marks": []},
>   {"line": 2, "index": null, "page": 13, "place": "sensor 0", "code": 5, "name": null, "bytes": "AA", "value": null, "number": null, "marks": ["unknown, left out"]},
>   {"line": 2, "index": 5, "page": 3, "place": "channel 3", "code": 0, "name": "PAGE", "bytes": "03", "value": "0x03", "number": null, "marks": []},
>   {"line": 2, "index": 6, "page": 3, "place": "channel 3", "code": 64, "name": "VOUT_OV_FAULT_LIMIT", "bytes": "FF FF", "value": "0xFFFF", "number": null, "marks": []},
>   {"line": 2, "index": 7, "page": 255, "place": "device", "code": 0, "name": "PAGE", "bytes": "FF", "value": "0xFF", "number": null, "marks": []},
>   {"line": 3, "index": 8, "page": 255, "place": "device", "code": 2, "name": "ON_OFF_CONFIG", "bytes": "16", "value": "0x16", "number": null, "marks": ["acts at once"]},
>   {"line": 3, "index": 9, "page": 255, "place": "device", "code": 157, "name": "MFR_DATE", "bytes": "01 02 03 00 00 00 00 00", "value": "2.1 hw 3", "number": null, "marks": []}]}
)",
              outcome([&] { return show(file, true); }));
}

TEST_F(PmfileTest, ReadsUntilTwoReadingsAgree)
{
    const std::string like = write("like.hex", fileOf(CHANNEL));
    const std::string fails = "VOUT_OV_WARN_LIMIT of channel 0 reads differently each time; nothing was written\n";
    for (const std::string bytes : {"28322832", "111128322832", "111122223333"}) {
        std::vector<std::uint8_t> readings;
        EXPECT_TRUE(readHexBytes(bytes, readings));
        fakeSystem.bus = {0, 0x4D, 0x5A, '0', '0', 0, 0, 0, 0, 0, 0, 0, 0, 0}; // page, identity, version, and page
        fakeSystem.bus.insert(fakeSystem.bus.end(), readings.begin(), readings.end());
        const std::string made = m_folder + "/read.hex";
        const std::string text = outcome([&] { return readChip({like, made}); });
        const bool agree = bytes != "111122223333";
        EXPECT_EQ(agree, text.find(fails) == std::string::npos) << text;
        ASSERT_EQ(agree, std::filesystem::exists(made)) << text;
        EXPECT_EQ(readAll(like), readAll(agree ? made : like)) << bytes;
        EXPECT_NE(
            std::string::npos,
            text.find("semctl 42 0 GETPID\nsmbus 1000 write size 2: 00 00\nusleep 100\nsmbus 1000 read size 2: 00\n"))
            << text;
        std::filesystem::remove(made);
    }
}

} // namespace
