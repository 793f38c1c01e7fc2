// pmupgrade as a whole: what it refuses, does and takes back, and that each of its statuses is true of what the chip
// holds, whatever fails, is killed or loses power, and at whichever transfer.
#include <cstdlib>
#include <filesystem>
#include <random>
#include <regex>
#include <set>
#include <sstream>

#include "boardRun.h"

namespace {

using virtualboard::Memory;

enum Holds { OLD, NEW, OTHER };

/// Strike once in so many times; STRIDE=1, at all transfers in all ways, takes half an hour of a processor.
const int STRIDE = std::getenv("STRIDE") != nullptr ? std::atoi(std::getenv("STRIDE")) : SLOW ? 601 : 101;

/// Some twenty entries: three supplies, a sensor and the version. Limits are in millivolts off the nominal voltage.
std::string list(int warning, int fault, const std::string& version)
{
    std::string text;
    for (int channel = 0; channel < 3; ++channel) {
        text += "[channel " + std::to_string(channel) + "]\nMFR_CHANNEL_NOMINAL 2.500 V\n";
        const std::pair<const char*, int> limits[] = {{"VOUT_OV_FAULT_LIMIT", fault},
                                                      {"VOUT_OV_WARN_LIMIT", warning},
                                                      {"VOUT_UV_WARN_LIMIT", -warning},
                                                      {"VOUT_UV_FAULT_LIMIT", -fault}};
        for (const auto& [name, distance] : limits) {
            char line[64];
            std::snprintf(line, sizeof(line), "%s %.3f V\n", name, (2500 + distance) / 1000.0);
            text += line;
        }
    }
    return text + "[sensor 0]\nOT_WARN_LIMIT " + std::to_string(80 + warning / 100) + " °C\n[device]\nMFR_DATE "
           + version + "\n";
}

/// The image without read-outs, status and the selected page.
virtualboard::Image settingsAlone(virtualboard::Image image)
{
    for (const virtualboard::Register& reg : virtualboard::REGISTERS) {
        if (reg.kind != catalogue::Kind::SETTING) {
            std::fill_n(image.begin() + reg.offset, reg.size * reg.copies, std::uint8_t{0});
        }
    }
    return image;
}

/// A board with the old settings and supplies that are well.
class UpgradeTest : public BoardRun {
protected:
    UpgradeTest()
    {
        write("old.settings", list(200, 300, "1.0 hw 1"));
        write("new.settings", list(100, 200, "1.1 hw 1"));
        write("trips.settings", list(40, 60, "1.2 hw 1"));
        for (const std::string name : {"old", "new", "trips"}) {
            EXPECT_EQ(0, run("$PMFILE make --allow all " + name + ".settings -o " + name + ".hex").status);
        }
        const auto store = [this](const std::string& file) {
            EXPECT_EQ(0, run("sh -c '$PMADMIN -r " + file + " && $PMADMIN -e " + file + "'").status);
            return settingsAlone(memory().ram);
        };
        m_new = store("new.hex");
        m_old = store("old.hex");
        run("$PMADMIN -a", "--supply all=nominal --sensor 0=30 --power-cycle");
        m_start = memory();
    }

    /// Begins anew: the board, and no runs before.
    void begin() const
    {
        setMemory(m_start);
        std::filesystem::remove_all(path("k"));
    }

    Holds holds(const virtualboard::Image& image) const { return image == m_old ? OLD : image == m_new ? NEW : OTHER; }
    Holds ram() const { return holds(settingsAlone(memory().ram)); }
    Holds flash() const { return holds(settingsAlone(memory().flash)); }

    static std::string lastLine(const Outcome& outcome)
    {
        const std::string& text = outcome.output.empty() ? outcome.errors : outcome.output;
        return text.substr(text.rfind('\n', text.size() - 2) + 1);
    }

    virtualboard::Image m_old = {};
    virtualboard::Image m_new = {};
    Memory m_start = {};
};

TEST_F(UpgradeTest, WhatItDoesAndRefuses)
{
    const std::string nothing = "Nothing to do: the working registers hold the file already.";
    write("cut.hex", readFile(path("new.hex")).substr(0, 60));
    write("identity.settings", "[device]\nMFR_SERIAL \"A1\"\n" + list(100, 200, "1.1 hw 1"));
    write("action.settings", "[channel 0]\nOPERATION 0x80\n" + list(100, 200, "1.1 hw 1"));
    run("$PMFILE make --allow all action.settings -o action.hex");
    write("-a b'c.hex", readFile(path("new.hex")));
    // A pmadmin that ends its parent when it is asked for something, as far as that can be done.
    for (const std::string when : {"-a", "-r"}) {
        std::filesystem::create_directory(path(when));
        write(when + "/pmadmin", "#!/bin/sh\nif [ $1 = " + when
                                     + " ]; then for s in INT TERM HUP QUIT PIPE TSTP; do [ $1 = -a ] && [ $s != TERM "
                                       "] || kill -$s $PPID; done; fi\nexec $PMADMIN \"$@\"\n");
        std::filesystem::permissions(path(when + "/pmadmin"), std::filesystem::perms::owner_all);
    }
    write("kills", "#!/bin/sh\nkill -9 $$\n");
    const std::string up = "$PMUPGRADE --keep k --allow partial ";
    // The board's options, the command, its status, what registers and flash hold then, a part of the last line.
    const std::tuple<const char*, std::string, int, Holds, Holds, std::string> cases[] = {
        {"", up + "new.hex", 0, NEW, NEW, "settings 1.1, in its working registers and in flash. To return to settings"},
        {"", up + "new.settings", 0, NEW, NEW, "The chip holds the file"},
        {"", up + "--dry-run new.hex", 0, OLD, OLD,
         "Dry run: nothing was written. To upgrade: pmupgrade --keep k new.hex\n"},
        {"", up + "old.hex", 0, OLD, OLD, nothing + " Flash can't be read; to store them: pmadmin -e old.hex\n"},
        {"", "sh -c '" + up + "new.hex && " + up + "new.hex'", 0, NEW, NEW, nothing + "\n"},
        {"", "sh -c 'cat new.hex | " + up + "/dev/stdin'", 0, NEW, NEW, "The chip holds the file"},
        {"", up + "\"-- \" 2>&1", 1, OLD, OLD, "there is no option '-- '"},
        {"", up + "-- \"-a b'c.hex\"", 0, NEW, NEW, "The chip holds the file"},
        {"", "sh -c '" + up + "new.hex >/dev/full'", 0, NEW, NEW, ""},
        {"", "sh -c '" + up + "new.hex >&- 2>&-'", 0, NEW, NEW, ""},
        {"", up + "cut.hex", 1, OLD, OLD, "Refused: the file has problems"},
        {"", up + "no.hex", 1, OLD, OLD, "no.hex: cannot be read: No such file or directory; nothing was written"},
        {"", "$PMUPGRADE --keep k --allow all action.hex", 1, OLD, OLD, "Refused: the file has problems"},
        {"", up + "--allow access new.hex", 1, OLD, OLD, "the problem access can't be allowed"},
        {"", up + "--allow identity identity.settings", 0, OTHER, OTHER, "The chip holds the file"},
        {"", up + "identity.settings", 1, OLD, OLD, "Refused: no file could be made from the list"},
        {"--fault absent", up + "new.hex", 1, OLD, OLD, "Refused: the power monitor does not answer"},
        {"--hw-version 0", up + "new.hex", 1, OLD, OLD, "Refused: the file is for newer hardware"},
        {"--supply 1=2.58", up + "trips.hex", 1, OLD, OLD, "Refused: with the file a supply or sensor would have"},
        {"--supply 1=2.58", up + "--anyway trips.hex", 0, OTHER, OTHER, "The chip holds the file"},
        {"--fault stuck=10:FF=40", up + "new.hex", 1, OLD, OLD, "Refused: the chip is write-protected"},
        {"--fault stuck=10:FF=80", up + "new.hex", 1, OLD, OLD, "Refused: "},
        {"--supply 1=2.9", up + "new.hex", 1, OLD, OLD, "Refused: a supply or sensor has a fault"},
        {"--fault code=11*3:timeout", up + "new.hex", 2, OLD, OLD, "before is back in them and in flash"},
        {"--fault code=11:timeout", up + "new.hex", 3, OLD, OLD, "The return failed, too: "},
        {"--fault store-silent=20", up + "new.hex", 0, NEW, NEW, "The chip holds the file"},
        {"--fault store-silent=150", up + "new.hex", 0, NEW, NEW, "The chip holds the file"},
        {"--fault store-silent=500", up + "new.hex", 0, NEW, NEW, "The chip holds the file"},
        {"", "$PMUPGRADE --keep /proc/k new.hex", 1, OLD, OLD, "/proc/k: cannot be made: "},
        {"", "$PMUPGRADE --keep new.hex new.hex", 1, OLD, OLD, "new.hex: is no folder; nothing was written"},
        // With nothing on the path but what the program itself is started with.
        {"", "sh -c 'set -- " + up + "new.hex; mkdir -p none; ln -sf \"$(command -v $1)\" none; PATH=$PWD/none \"$@\"'",
         1, OLD, OLD, "Refused: the file has problems, or can't be"},
        {"",
         "sh -c 'mkdir -p fake; cp kills fake/pmstatus; chmod +x fake/pmstatus; PATH=$PWD/fake:$PATH " + up
             + "new.hex'",
         1, OLD, OLD, "Refused: it can't be told how the supplies are"},
        {"", "sh -c 'PATH=$PWD/-r:$PATH " + up + "new.hex'", 0, NEW, NEW, "The chip holds the file"},
        {"", "sh -c 'PATH=$PWD/-a:$PATH " + up + "new.hex'", 1, OLD, OLD, "Refused: it was interrupted"},
        {"", "flock board " + up + "new.hex", 1, OLD, OLD, "another pmupgrade is at work"},
        {"", "$PMUPGRADE --keep k --return", 1, OLD, OLD, "Refused: no upgrade was made from"},
        {"", "$PMUPGRADE --return --anyway", 1, OLD, OLD, "--return can't be given with"},
        {"", "$PMUPGRADE", 1, OLD, OLD, "no file is given (see pmupgrade --help)"},
        {"", "sh -c '" + up + "new.hex && $PMUPGRADE --keep k --return'", 1, NEW, NEW,
         ": pmupgrade --keep k --return 1. "},
        {"", "sh -c '" + up + "new.hex && $PMUPGRADE --keep k --return 1'", 0, OLD, OLD,
         "The chip holds the settings "},
        {"", "sh -c '" + up + "new.hex && $PMUPGRADE --keep k --return 1 --dry-run'", 0, NEW, NEW, "Dry run: "},
        {"", "sh -c '" + up + "new.hex; cp old.hex k/*/backup.hex; $PMUPGRADE --keep k --return 1'", 1, NEW, NEW,
         "is not what it was when that began"},
        {"", "sh -c '" + up + "--allow identity identity.settings && $PMUPGRADE --keep k --return 1'", 0, OLD, OLD, ""},
        {"", "sh -c '" + up + "new.hex; $PMADMIN -r other.hex; $PMUPGRADE --keep k --return 1'", 1, OTHER, NEW,
         "the chip bears neither the identity"},
    };
    write("other.settings", "[device]\nMFR_SERIAL \"B2\"\n");
    run("$PMFILE make --allow all other.settings -o other.hex");
    for (const auto& [options, command, status, registers, stored, line] : cases) {
        const std::string name = options + command;
        begin();
        const Outcome outcome = run(command, options);
        EXPECT_EQ(status, outcome.status) << name << outcome.output << outcome.errors;
        EXPECT_EQ(registers, ram()) << name;
        EXPECT_EQ(stored, flash()) << name;
        EXPECT_NE(std::string::npos, lastLine(outcome).find(line)) << name << ": " << lastLine(outcome);
        EXPECT_EQ(outcome.status == 3, std::filesystem::exists(path("k/under-way.json"))) << name;
        EXPECT_EQ(1, lockValue()) << name;
        run("$PMADMIN -a", "--supply all=nominal --power-cycle --hw-version 3");
    }
}

/// The number of the last transfer of the bus log that matches.
int lastMatch(const std::string& bus, const std::string& pattern)
{
    int last = 0;
    int number = 0;
    std::istringstream lines(bus);
    for (std::string line; std::getline(lines, line);) {
        ++number;
        last = std::regex_search(line, std::regex(pattern)) ? number : last;
    }
    return last;
}

// A run that did not come to its end: the note is for its file and the way back, on its chip, and for nothing else.
TEST_F(UpgradeTest, WhatANoteIsFor)
{
    write("other.settings", "[device]\nMFR_SERIAL \"B2\"\n");
    run("$PMFILE make --allow all other.settings -o other.hex");
    const std::string up = "$PMUPGRADE --keep k --allow partial ";
    const std::string at = std::to_string(lastMatch(run(up + "new.hex").bus, "S 74w 44 [0-9A-F ]+ P$"));
    const std::string other = "another chip than the one that was being written; to set the note aside: mv ";
    const std::tuple<const char*, std::string, int, Holds, std::string> cases[] = {
        {"", up + "trips.hex", 1, OTHER, "/file.hex, or return to what was before it by pmupgrade --keep k --return."},
        {"", up + "new.hex", 0, NEW, "The chip holds the file"},
        {"", up + "--dry-run new.hex", 0, OTHER, "Dry run: nothing was written"},
        {"--supply 1=2.75", up + "new.hex", 1, OTHER, "; pmupgrade --keep k --return returns). Nothing was written."},
        {"", "$PMUPGRADE --keep k --return", 0, OLD, "The chip holds the settings from before"},
        {"", "$PMUPGRADE --keep k --return 2", 1, OTHER, "there is no run 2 in "},
        {"", "sh -c '$PMADMIN -r other.hex; " + up + "new.hex'", 1, OTHER, other},
        {"", "sh -c '$PMADMIN -r other.hex; $PMUPGRADE --keep k --return'", 1, OTHER, "to set the note aside: mv "},
        {"", "sh -c 'echo {} >k/under-way.json; " + up + "new.hex'", 1, OTHER, "is not what pmupgrade writes there"},
        {"", "sh -c 'rm k/0001*/backup.hex; " + up + "new.hex'", 1, OTHER, "backup.hex: cannot be read: "},
    };
    for (const auto& [options, command, status, registers, line] : cases) {
        begin();
        run(up + "new.hex", "--fault " + at + ":kill-run");
        const Outcome outcome = run(command, options);
        EXPECT_EQ(status, outcome.status) << command << outcome.output << outcome.errors;
        EXPECT_EQ(registers, ram()) << command;
        EXPECT_NE(std::string::npos, lastLine(outcome).find(line)) << command << ": " << lastLine(outcome);
        const bool isOpen = status != 0 || command.find("dry-run") != std::string::npos;
        EXPECT_EQ(isOpen, std::filesystem::exists(path("k/under-way.json"))) << command;
        run("$PMADMIN -a", "--supply all=nominal --power-cycle");
    }
}

/// The numbers of the transfers to strike at: all of the programs that write settings, and of each other program the
/// first, the last and one between them.
std::vector<int> strikes(const std::string& bus)
{
    static const std::regex WRITES("\\] S 74w (?!00)\\w\\w[^S]* P$");
    std::vector<std::pair<std::string, std::vector<int>>> programs; // by process, in their order
    std::set<std::string> writing;
    std::istringstream lines(bus);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        const std::string process = line.substr(0, line.find(']'));
        if (programs.empty() || programs.back().first != process) {
            programs.push_back({process, {}});
        }
        programs.back().second.push_back(++number);
        if (std::regex_search(line, WRITES)) {
            writing.insert(process);
        }
    }
    std::minstd_rand chance(42);
    std::vector<int> chosen;
    for (const auto& [process, all] : programs) {
        if (writing.contains(process)) {
            chosen.insert(chosen.end(), all.begin(), all.end());
        } else {
            chosen.insert(chosen.end(), {all.front(), all[chance() % all.size()], all.back()});
        }
    }
    return chosen;
}

/// Whether a supply is tripped when the file has been written, or when it has been stored, or not.
class StruckUpgradeTest : public UpgradeTest, public testing::WithParamInterface<const char*> {};

// What is struck: writing, storing, and the return where a supply is tripped.
TEST_P(StruckUpgradeTest, TheStatusIsTrueAndWhatComesNextMakesItWhole)
{
    const std::string up = "$PMUPGRADE --keep k --allow partial new.hex";
    const std::string trippedBehind = GetParam();
    const Outcome plain = run(up, "--pid");
    ASSERT_EQ(0, plain.status);
    std::string trip;
    if (!trippedBehind.empty()) {
        trip = " --fault " + std::to_string(lastMatch(plain.bus, trippedBehind) + 1) + "-:supply=1:9";
    }
    begin();
    const Outcome whole = run(up, "--pid" + trip);
    ASSERT_EQ(trip.empty() ? 0 : 2, whole.status) << whole.output;
    const std::vector<int> numbers = strikes(whole.bus);
    const char* const KINDS[] = {"N:kill-run", "N:power-off", "N:nack", "N-M:nack", "N-:nack"};
    for (std::size_t i = 0; i < numbers.size() * std::size(KINDS); i += static_cast<std::size_t>(STRIDE)) {
        const int number = numbers[i / std::size(KINDS)];
        const std::string kind = KINDS[i % std::size(KINDS)];
        const std::string rule = std::regex_replace(std::regex_replace(kind, std::regex("N"), std::to_string(number)),
                                                    std::regex("M"), std::to_string(number + 2));
        begin();
        const Outcome struck = run(up, "--fault " + rule + trip);
        const std::string name = rule + trip + "\n" + struck.output + struck.errors;
        const bool isKilled = kind.find("nack") == std::string::npos;
        EXPECT_EQ(isKilled, struck.status < 0 || struck.status > 3) << name;
        if (struck.status == 0) {
            EXPECT_TRUE(ram() == NEW && flash() == NEW) << name;
        }
        if (struck.status == 1 || struck.status == 2) {
            EXPECT_TRUE(ram() == OLD && flash() == OLD) << name;
            EXPECT_TRUE(struck.status == 2 || !std::filesystem::exists(path("k/under-way.json"))) << name;
        }
        if (struck.status >= 0 && struck.status < 3) {
            continue;
        }
        std::smatch words;
        const std::string line = lastLine(struck);
        const bool isTold = !isKilled && std::regex_search(line, words, std::regex("o (return|try again): ([^,\n]*)"));
        EXPECT_EQ(!isKilled, isTold) << name;
        const std::string next = isTold ? words[2].str() : number % 2 == 0 ? "$PMUPGRADE --keep k --return" : up;
        const Outcome after = run("sh -c '" + next + "'");
        EXPECT_EQ(ram(), flash()) << name << after.output;
        EXPECT_NE(OTHER, ram()) << name << after.output;
        const bool isReturn = next.find("--return") != std::string::npos;
        EXPECT_TRUE(after.status == (ram() == (isReturn ? OLD : NEW) ? 0 : 2) || after.status == 1)
            << name << after.output << after.errors;
        EXPECT_TRUE(after.status != 1 || isReturn) << name << after.output << after.errors;
    }
}

INSTANTIATE_TEST_SUITE_P(Trips, StruckUpgradeTest, testing::Values("", "S 74w 9D 01 01.* P$", "S 74w 11 P$"));

} // namespace
