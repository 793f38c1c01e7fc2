// pmstatus as a whole program: what it says of supplies and sensors, in each form, and when it can't say anything.
#include <sys/sem.h>

#include <filesystem>
#include <regex>

#include "boardRun.h"

namespace {

constexpr const char* NOMINAL = "--supply all=nominal";

/// A board with the settings of board A and supplies that are well.
class StatusTest : public BoardRun {
protected:
    StatusTest()
    {
        EXPECT_EQ(0, run("$PMADMIN -u $EXAMPLES/board-a.hex").status);
        EXPECT_EQ(0, run("$PMSTATUS", NOMINAL).status);
    }

    void setLock(int value) const
    {
        // Whole: where unions travel in memory, a bare int would be taken for an address.
        union {
            int value;
            void* buffer;
        } argument{value};
        EXPECT_EQ(0, semctl(lockSet(), 0, SETVAL, argument));
    }
};

TEST_F(StatusTest, StatesAndComplaints)
{
    const auto start = memory();
    const std::string all = "12 supplies and 5 sensors: ";
    // What was before, what is when pmstatus looks, its options, its status and line.
    const std::tuple<std::string, std::string, std::string, int, std::string> cases[] = {
        {"", "", "", 0, "all good"},
        {"", "--supply 3=2.7", "", 0, "all good"},
        {"", "--supply 3=2.701", "", 1,
         "warning: channel 3: overvoltage warning (latched and present; 2.701 V is above 2.700 V)"},
        {"--supply 3=2.701", "--supply 3=2.5", "", 1,
         "warning: channel 3: overvoltage warning (latched; 2.500 V is within its limits)"},
        {"--supply 3=2.25", "--supply 3=2.5", "--off 3", 1,
         "warning: channel 3: undervoltage warning (latched; 2.500 V is within its limits)"},
        {"", "--supply 3=2.9", "", 2,
         "fault: channel 3: overvoltage fault (latched and present; 2.900 V is above 2.800 V), and 1 more complaint"},
        {"", "--supply 3=0 --power-cycle", "", 1,
         "warning: channel 3: off, or not watched yet (present; 0.000 V is below 2.200 V)"},
        {"", "--supply 3=0 --power-cycle", "--off 2,3,sensor1", 0, "all good"},
        {"", "--supply 3=0", "--off 3", 2,
         "fault: channel 3: undervoltage fault (latched; it is expected to be off), and 1 more complaint"},
        {"", "--sensor 1=106", "", 2,
         "fault: sensor 1: overtemperature fault (latched and present; 106 °C is above 105 °C), and 1 more complaint"},
        {"", "--sensor 1=faulty", "", 1, "warning: sensor 1: faulty sensor (present)"},
        {"", "--sensor 1=faulty", "--off sensor1", 0, "all good"},
        {"", "--sensor 1=disabled", "", 0, "all good"},
        {"", "--fault stuck=79:FFFF=4800", "", 0, "good, but STATUS_WORD says: bit 14, power good negated"},
        {"", "--fault stuck=7A@3:FF=04", "", 2,
         "fault: channel 3: TON_MAX fault: it did not come up in time (latched)"},
        {"", "--fault code=8B@3*1:supply=3:2.75 --fault stuck=7A@3:FF=00", "", 0,
         "good, but STATUS_WORD says: output voltage"},
        {"--supply 3=none", "--fault stuck=8B@3:FFFF=0AF1", "", 2,
         "fault: channel 3: overvoltage fault (present; 2.801 V is above 2.800 V)"},
    };
    for (const auto& [before, now, options, status, line] : cases) {
        setMemory(start);
        run("true", std::string(NOMINAL) + " --power-cycle --sensor 1=30");
        run("$PMADMIN -a", before);
        const Outcome outcome = run("$PMSTATUS --brief " + options, now);
        EXPECT_EQ(all + line + "\n", outcome.output) << before << now;
        EXPECT_EQ(status, outcome.status) << before << now;
        EXPECT_EQ("", outcome.errors);
    }
}

// Of random boards and files, always the same ones.
TEST_F(StatusTest, AgreesWithAReference)
{
    std::filesystem::copy_file(REFERENCE, path("reference.py"));
    const Outcome outcome = run(SLOW ? "python3 reference.py 1 2" : "python3 reference.py 1 20");
    EXPECT_EQ("0", std::to_string(outcome.status) + outcome.errors);
}

TEST_F(StatusTest, InEachForm)
{
    write("names", "[channel 3 CORE_2V5]\n[sensor 1 \"A\\B\"]\nnothing else is looked at\n");
    const std::string options = " --names names --off 0";
    const std::string board = "--supply 3=2.701 --sensor 1=faulty --fault stuck=79:FFFF=8802";
    const Outcome text = run("$PMSTATUS" + options, board);
    for (const char* const part :
         {"MAX34460, model 0x5A, settings 2.5\n",
          "STATUS_WORD 0x8802 (output voltage, power good negated, communication)\n",
          "\n      3  CORE_2V5   2.701 V       +8.0 %   2.500 V   2.701 V    2.300 V to 2.700 V    2.200 V to 2.800 V  "
          "warning\n      overvoltage warning (latched and present; 2.701 V is above 2.700 V)\n",
          "\n     1  \"A\\B\"    faulty         -          95 °C       105 °C  warning\n      faulty sensor "
          "(present)\n",
          "\n\n12 supplies and 5 sensors: warning: channel 3 CORE_2V5: overvoltage warning (latched and present; 2.701 "
          "V is "
          "above 2.700 V), and 1 more complaint\n"}) {
        EXPECT_TRUE(text.output.find(part) != std::string::npos) << part << text.output;
    }
    write("read.py", R"py(
import json, sys
from prometheus_client.parser import text_string_to_metric_families as families
shown = json.load(open("json"))
core, sensor = shown["supplies"][3], shown["sensors"][1]
assert [shown[k] for k in ("settings", "state", "statusWord", "writeProtect")] == ["2.5", "warning", 0x8802, 0]
assert core == {"channel": 3, "name": "CORE_2V5", "volts": 2.701, "nominal": 2.5, "lowest": 2.5, "highest": 2.701,
                "running": True, "state": "warning",
                "complaints": ["overvoltage warning (latched and present; 2.701 V is above 2.700 V)"]}, core
assert sensor["name"] == '"A\\B"' and sensor["celsius"] is None and sensor["highest"] is None
metrics = {(s.name, *sorted(s.labels.items())): s.value for f in families(open("metrics").read()) for s in f.samples}
label = ("channel", "3"), ("name", "CORE_2V5")
assert metrics["pm_up",] == 1 and metrics["pm_info", ("model", "0x5A"), ("settings", "2.5")] == 1
assert metrics["pm_supply_volts", *label] == 2.701 and metrics["pm_supply_state", *label] == 1
assert metrics["pm_supply_limit_volts", label[0], ("limit", "ov_fault"), label[1]] == 2.8
assert metrics["pm_sensor_state", ("name", '"A\\B"'), ("sensor", "1")] == 1
assert ("pm_sensor_celsius", ("name", '"A\\B"'), ("sensor", "1")) not in metrics
assert sum(name[0] == "pm_sensor_celsius" for name in metrics) == 4
)py");
    write("json", run("$PMSTATUS --json" + options, board).output);
    EXPECT_EQ("12 supplies and 5 sensors: all good\n",
              run("$PMSTATUS --all --brief", NOMINAL + std::string(" --power-cycle --sensor 1=30")).output);
    EXPECT_EQ("no supply or sensor is set up in the chip (--all shows all)\n",
              run("$PMSTATUS --brief", "--board factory").output);
    const Outcome without = run("$PMSTATUS --json", "--model 0x57");
    EXPECT_NE(std::string::npos, without.output.find("\"nominal\":null")) << without.output;
    if (run("/usr/bin/python3 -c 'import prometheus_client'").status != 0) {
        GTEST_SKIP() << "python3-prometheus-client is not installed";
    }
    const Outcome metrics = run("sh -c '$PMSTATUS --prometheus" + options + " >metrics; /usr/bin/python3 read.py'",
                                board + " --model 0x5A");
    EXPECT_EQ("", metrics.errors);
    EXPECT_EQ(0, metrics.status);
}

TEST_F(StatusTest, WhenItCannotTell)
{
    write("bad", "[channel 3 CORE\n");
    write("worse", "channel 3 CORE\n");
    const std::string help = " (see pmstatus --help)";
    const std::string bus = run("$PMSTATUS").bus;
    const auto transfers = std::count(bus.begin(), bus.end(), '\n');
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"", "--fault absent", "the power monitor does not answer on /dev/i2c-0: No such device or address"},
        {"", "--fault busy", "the address 0x74 of /dev/i2c-0 is taken by a kernel driver"},
        {"--bus 1", "", "/dev/i2c-1 can't be opened: No such file or directory"},
        {"", "--fault silent-after=300", "STATUS_WORD of the device can't be read: No such device or address"},
        {"", "--fault code=43@4:nack", "VOUT_UV_WARN_LIMIT of channel 4 can't be read: No such device or address"},
        {"", "--fault keep=00@4",
         "channel 5 does not stay selected: the chip is write-protected, or another program uses it without the lock"},
        {"", "--fault stuck=10:80=80",
         "WRITE_PROTECT is 0x80 in the chip: it ignores PAGE, and only one page can be read"},
        {"--names no", "", "no: cannot be read: No such file or directory"},
        {"--names bad", "", "bad:1: a [section] ends with ]"},
        {"--with no", "", "no: cannot be read: No such file or directory"},
        {"--with bad", "", "bad:1: a [section] ends with ]"},
        {"--with worse", "", "worse:1: the line holds something other than hexadecimal digits"},
        {"", "--fault " + std::to_string(transfers) + "-:nack",
         "the page that was selected before, 7, can't be selected again: No such device or address"},
        {"--off 12", "", "--off takes channels 0 to 11 and sensors sensor0 to sensor4, for example 3,7,sensor1" + help},
        {"--off 3,", "", "--off takes channels 0 to 11 and sensors sensor0 to sensor4, for example 3,7,sensor1" + help},
        {"--bus x", "", "--bus takes the number of an I2C bus, from 0 to 255" + help},
        {"--watch 0", "", "--watch takes a number of seconds, from 1 to 86400" + help},
        {"--watch 1 --clear", "", "--watch can't be given with --prometheus, --with or --clear" + help},
        {"--clear --with x", "", "--clear can't be given with --with" + help},
        {"--json", "", "only one of --brief, --json and --prometheus can be given" + help},
        {"--with x --with x --with x", "", "--with can be given twice at most" + help},
        {"--of", "", "option '--of' needs a value" + help},
        {"--none", "", "there is no option '--none'" + help},
        {"--brief=x", "", "option '--brief' takes no value" + help},
        {"-xy --of", "", "there is no option '-x'" + help},
        {"x", "", "expected options alone, not 'x'" + help},
    };
    const int page = 7;
    for (const auto& [options, fault, message] : cases) {
        run("$BUS_USER page " + std::to_string(page));
        const Outcome outcome = run(std::string("$PMSTATUS --brief ") + options, fault);
        EXPECT_EQ(3, outcome.status) << message;
        EXPECT_EQ("pmstatus: " + message + "\n", outcome.errors);
        EXPECT_EQ(outcome.errors.find("only one of") == std::string::npos ? "unknown: " + message + "\n" : "",
                  outcome.output);
        auto after = memory();
        const bool isDeaf = std::regex_search(fault, std::regex("silent|keep|-:nack"));
        EXPECT_TRUE(isDeaf || page == *virtualboard::bytesOf(after.ram, Page::CODE, 0)) << message;
    }
    const Outcome full = run("sh -c '$PMSTATUS --clear >/dev/full'");
    EXPECT_EQ("3pmstatus: standard output: No space left on device\n", std::to_string(full.status) + full.errors);
    EXPECT_EQ(std::string::npos, full.bus.find("S 74w 03")) << "nothing is cleared that was not shown";
    EXPECT_EQ("pmstatus: there is no option '--none'" + help + "\n",
              run("sh -c '$PMSTATUS --brief --none >/dev/full'").errors);
    const Outcome absent = run("$PMSTATUS --prometheus", "--fault absent");
    EXPECT_EQ("# HELP pm_up Whether the power monitor could be read.\n# TYPE pm_up gauge\npm_up 0\n", absent.output);
}

/// A PM data file of these entries, in hexadecimal: size, code, data.
std::string dataFile(const std::string& entries)
{
    char begin[16];
    std::snprintf(begin, sizeof(begin), ":%02X000000", static_cast<unsigned int>(entries.size() / 2));
    return begin + entries + "FF\n";
}

TEST_F(StatusTest, WhatAFileWouldDo)
{
    const std::string over = "fault: channel 3: 2.500 V is above VOUT_OV_FAULT_LIMIT 1.000 V";
    const std::string end = "At the end:\n  ";
    const std::string passed = " passed over, the first of them here: ";
    // One or two files, what is set before, the status, and what stands below the tables.
    const std::tuple<std::vector<std::string>, std::string, int, std::string> cases[] = {
        {{"0100030240E803"}, "", 2, end + over + "\nPeaks that"},
        {{"010003024068100240E80302406810"},
         "",
         2,
         "Beyond a limit while it is written, but not at the end; may trip, if a measurement falls into it (every 5 "
         "ms, "
         "as known from siblings):\n  "
             + over + ", from entry 2 (1:1) to 2 (1:1)\n\nwith 1: " + over + "\n"},
        {{"0100030240E803", "01000302406810"}, "", 2, end + over + ", with 1\nPeaks that"},
        {{"0100030243E803"},
         "--supply 3=0 --power-cycle",
         0,
         "1 supply does not run; whether they would be too low is not judged\n\nwith 1: all good\n"},
        {{"0100030242A009"},
         "--supply 3=2.5",
         1,
         "Peaks that only the new limits would have noticed:\n  warning: channel 3: 2.500 V is above "
         "VOUT_OV_WARN_LIMIT 2.464 V\n\nwith 1"},
        {{"0242E803024FE803"},
         "",
         0,
         "1:1: 1 entry is" + passed + "pmadmin refuses to write it on this page\n1:1: 1 entry is" + passed
             + "the chip refuses it on the page that is selected then\n\nwith 1: all good\n"},
        {{"01000C0240E803010003"},
         "",
         0,
         "1:1: 2 entries are" + passed + "the chip does not have the page, and pmadmin refuses to write it\n\nwith"},
        {{"0110800100030240E803"}, "", 0, "1:1: 2 entries are" + passed + "the chip is write-protected\n\nwith"},
        {{"0110800110000100030240E803"}, "", 2, end + over},
        {{"0100FF010140"},
         "",
         1,
         "1:1: warning: OPERATION of channel 11 changes from 0x00 to 0x40 and may switch supplies at once\n\nwith"},
        {{"0100FF02D1010002FB0200"},
         "",
         1,
         "1:1: warning: MFR_MODE of device changes from 0x0020 to 0x0001 and may switch supplies at once\n"
         "1:1: MFR_GPO_CONFIG of device changes from 0x0021 to 0x0002; what that does is not simulated\n\nwith"},
        {{"01000301D21F0011019901"},
         "",
         1,
         "1:1: warning: MFR_PSEN_CONFIG of channel 3 changes from 0x10 to 0x1F and may switch supplies at once\n"
         "1:1: 1 entry is"
             + passed + "pmadmin refuses to write it on this page\n\nwith"},
        {{"010003022A000002400100"},
         "",
         2,
         end + "fault: channel 3: a VOUT_SCALE_MONITOR of 0x0000 can't be simulated\n\nwith"},
    };
    for (const auto& [files, before, status, text] : cases) {
        run("true", std::string(NOMINAL) + " --power-cycle");
        run("$PMADMIN -a", before);
        std::string options;
        for (const std::string& file : files) {
            const std::string name = std::to_string(&file - files.data() + 1);
            write(name, dataFile(file));
            options += " --with " + name;
        }
        const Outcome outcome = run("$PMSTATUS" + options, before.find("2.5") < 99 ? "--supply 3=2.45" : "");
        EXPECT_NE(std::string::npos, outcome.output.find("\n" + text))
            << text << "in" << outcome.output << outcome.errors;
        EXPECT_EQ(status, outcome.status) << text;
    }
}

TEST_F(StatusTest, WhatAFileWouldDoAsJson)
{
    write("1", dataFile("0100030242C4090243C5090100FF02D10100"));
    const std::string output = run("$PMSTATUS --json --with 1").output;
    EXPECT_EQ(
        R"("atEnd":[{"channel":3,"limit":"VOUT_UV_WARN_LIMIT","value":2.5,"bound":2.501,"state":"warning","file":1}])"
        R"(,"whileWritten":[],"sincePeaks":[{"channel":3,"limit":"VOUT_UV_WARN_LIMIT","value":2.5,"bound":2.501,)"
        R"("state":"warning","file":1}],"remarks":[{"file":1,"line":1,"state":"warning","text":"MFR_MODE of )"
        R"(device changes from 0x0020 to 0x0001 and may switch supplies at once"}],"notRunning":0})"
        "\n",
        output.substr(std::min(output.size(), output.find("\"atEnd\""))));
}

// On a terminal, of a chip with bits that nobody knows.
TEST_F(BoardRun, StatusInColour)
{
    run("$PMADMIN -u $EXAMPLES/small.hex");
    const std::string odd = "--fault stuck=7A@1:FF=01 --fault stuck=80@1:FF=12 --fault stuck=10:FF=40 --fault "
                            "stuck=7D@13:FF=03 --sensor 0=disabled --supply 0=12.85 --supply 1=0";
    const Outcome shown = run("script -qec '$PMSTATUS --off 1' /dev/null", odd);
    EXPECT_EQ("MAX34460, model 0x5A, settings 1.0\n"
              "STATUS_WORD 0x8000 (output voltage)\n"
              "STATUS_CML 0x00\n"
              "STATUS_MFR_SPECIFIC 0x00\n"
              "WRITE_PROTECT 0x40: the chip ignores writes to its settings\n\n"
              "channel         now  off nominal    lowest   highest        warning limits  fault limits  state\n"
              "      0    12.850 V            -  12.850 V  12.850 V  11.160 V to 12.840 V        - to -  "
              "\x1B[33mwarning\x1B[0m\n"
              "      overvoltage warning (latched and present; 12.850 V is above 12.840 V)\n"
              "      1     0.000 V            -   0.000 V         -    4.650 V to 5.350 V        - to -  "
              "\x1B[32mgood\x1B[0m\n"
              "      STATUS_VOUT has bits whose meaning is not known: 0x01\n"
              "      STATUS_MFR_SPECIFIC 0x12, whose bits are not known for this chip\n\n"
              "sensor                    now  highest  warning limit  fault limit  state\n"
              "     0    0.00 °C or disabled        -          80 °C            -  \x1B[32mgood\x1B[0m\n"
              "      STATUS_TEMPERATURE has bits whose meaning is not known: 0x03\n\n"
              "\x1B[33m2 supplies and 1 sensor: warning: channel 0: overvoltage warning (latched and present; 12.850 V "
              "is above 12.840 V)\x1B[0m\n",
              std::regex_replace(shown.output, std::regex("\r"), ""));
    EXPECT_EQ(1, run("sh -c 'NO_COLOR=1 script -qec \"$PMSTATUS\" /dev/null | grep -c \x1B'", odd).status);
}

// Until the report is out, nothing can be said; from then on it stays true.
TEST_F(BoardRun, EachTransferOfPmstatusThatFailsIsTold)
{
    run("$PMADMIN -u $EXAMPLES/small.hex");
    const auto count = [](const std::string& bus) { return std::count(bus.begin(), bus.end(), '\n'); };
    const auto shown = count(run("$PMSTATUS").bus);
    const auto all = count(run("$PMSTATUS --clear").bus);
    for (int n = 1; n <= all; n += SLOW ? 37 : 3) {
        const std::string rule = std::to_string(n) + "-" + std::to_string(n + 2) + ":nack";
        const Outcome outcome = run("$PMSTATUS --clear --brief", "--fault " + rule);
        const bool isShown = n > shown;
        EXPECT_EQ(isShown ? 0 : 3, outcome.status) << rule;
        EXPECT_EQ(isShown ? 0U : std::string::npos, outcome.output.find("2 supplies and 1 sensor: all good\n")) << rule;
        const bool isSent = outcome.bus.find("S 74w 03 P\n") != std::string::npos;
        EXPECT_EQ(0U, outcome.errors.find(isSent    ? "pmstatus: CLEAR_FAULTS was sent, but"
                                          : isShown ? "pmstatus: nothing was cleared: "
                                                    : "pmstatus: "))
            << rule << outcome.errors;
        EXPECT_EQ(outcome.errors.size() - 1, outcome.errors.find('\n')) << rule;
        EXPECT_EQ(1, lockValue()) << rule;
    }
}

TEST_F(StatusTest, OneVisitOnTheBus)
{
    run("$BUS_USER page 7");
    const Outcome outcome = run("$PMSTATUS", "--supply 3=2.9 --fault stuck=7A@3:FF=00");
    const auto twice = [](const std::string& line) { return "S 74w " + line + " P\nS 74w " + line + " P\n"; };
    const std::string begin = "S 74w 00 Sr 74r 07 P\nS 74w 00 FF P\n";
    EXPECT_EQ(begin, outcome.bus.substr(0, begin.size()));
    const std::size_t at = outcome.bus.find("S 74w 00 03 P\n");
    EXPECT_EQ("S 74w 00 03 P\nS 74w 00 Sr 74r 03 P\n" + twice("2A Sr 74r 00 40") + twice("40 Sr 74r F0 0A")
                  + twice("42 Sr 74r 8C 0A") + twice("43 Sr 74r FC 08") + twice("44 Sr 74r 98 08")
                  + twice("EA Sr 74r C4 09")
                  + "S 74w 8B Sr 74r 54 0B P\nS 74w D4 Sr 74r 54 0B P\nS 74w D7 Sr 74r C4 09 P\nS 74w 7A Sr 74r 00 P\n"
                    "S 74w 80 Sr 74r 00 P\nS 74w 8B Sr 74r 54 0B P\nS 74w 00 Sr 74r 03 P\n",
              outcome.bus.substr(at, outcome.bus.find("S 74w 00 04 P\n") - at));
    EXPECT_EQ(
        "FF FF 00 01 02 03 04 05 06 07 08 09 0A 0B 0D 0E 0F 10 11 FF 07 ",
        std::regex_replace(outcome.bus, std::regex("S 74w 00 (..) P\n"), "$1 ", std::regex_constants::format_no_copy));
}

TEST_F(StatusTest, WhatIsClearedAndWhatStays)
{
    const std::string good = "CLEAR_FAULTS was sent; no status bit is left";
    const std::string stays = "CLEAR_FAULTS was sent; what lasts is latched again: channel 3: overvoltage warning; "
                              "STATUS_WORD: output voltage";
    const std::string bus = run("$PMSTATUS").bus;
    const std::string later = std::to_string(std::count(bus.begin(), bus.end(), '\n') + 10);
    const std::tuple<const char*, std::string, int, std::string> cases[] = {
        {"--supply 3=2.75", "--supply 3=2.5", 1, good},
        {"--supply 3=2.75", "", 1, stays},
        {"", "--supply 3=2.75 --fault " + later + "-:supply=4:9", 1,
         "nothing was cleared: the status has changed since it was shown"},
    };
    for (const auto& [before, now, status, message] : cases) {
        run("$PMADMIN -a", before);
        const Outcome outcome = run("$PMSTATUS --clear --brief", now);
        EXPECT_EQ(status, outcome.status) << message;
        EXPECT_EQ("pmstatus: " + message + "\n", outcome.errors);
        EXPECT_EQ(0U,
                  outcome.output.find("12 supplies and 5 sensors: warning: channel 3: overvoltage warning (latched"));
    }
    EXPECT_EQ("pmstatus: CLEAR_FAULTS was sent; what lasts is latched again: channel 3: TON_MAX fault; STATUS_WORD: "
              "output voltage\n",
              run("$PMSTATUS --clear", "--fault stuck=7A@3:FF=04").errors);
}

TEST_F(StatusTest, BesideOthers)
{
    setLock(0);
    const Outcome locked = run("$PMSTATUS --json");
    EXPECT_EQ(3, locked.status);
    EXPECT_EQ("", locked.output + locked.bus);
    EXPECT_TRUE(std::regex_match(locked.errors, std::regex("pmstatus: process [0-9]+ .* has the lock .*\n")))
        << locked.errors;
    setLock(1);

    run("$BUS_USER page 7");
    const Outcome robbed = run("sh -c '$VIRTUAL_BOARD --bus-log all --time-scale 100 --fault code=43@3*1:timeout "
                               "sh -c \"echo \\$\\$ >pid; exec $PMSTATUS\" & "
                               "until grep -q ETIMEDOUT all 2>/dev/null; do :; done; kill -STOP $(cat pid); "
                               "$PMADMIN -a >/dev/null; wc -l <all >before; kill -CONT $(cat pid); wait $!; echo $?; "
                               "tail -n +$(($(cat before) + 1)) all | grep \"w 00 .. P\"'");
    EXPECT_EQ("3\n", robbed.output) << "it writes nothing more";
    EXPECT_NE(std::string::npos, robbed.errors.find(" took the lock of the power monitor over\n")) << robbed.errors;

    const Outcome watched =
        run("sh -c '$PMSTATUS --watch 1 --json & sleep 2; kill -TERM $!; wait $!'", "--time-scale 1");
    EXPECT_EQ(0, watched.status) << watched.errors;
    EXPECT_EQ(0U, watched.output.find("{\"time\":\"20")) << watched.output;
    EXPECT_LE(2, std::count(watched.output.begin(), watched.output.end(), '\n'));
    EXPECT_EQ(3, run("sh -c '$PMSTATUS --watch 9 >/dev/full'").status) << "ends when nobody can read it";

    // Each start of pmadmin -a selects page 255, without the lock. Where that is taken, it does not live to take it
    // over.
    const std::string line = "12 supplies and 5 sensors: warning: channel 3: overvoltage warning (latched and present; "
                             "2.750 V is above 2.700 V)\n";
    const std::string count = SLOW ? "6" : "60";
    const Outcome disturbed =
        run("sh -c 'while [ ! -e end ]; do $VIRTUAL_BOARD timeout -s KILL 0.3 $PMADMIN -a >activity 2>&1; done & "
            "for i in $(seq "
                + count + "); do $PMSTATUS --brief; done | uniq -c; >end; wait'",
            "--time-scale 0.05 --supply 3=2.75");
    EXPECT_EQ(count + " " + line, disturbed.output.substr(disturbed.output.find_first_not_of(' '))) << disturbed.errors;

    // A start with page 255, where an entry before the first PAGE is meant, lies before, and the comparison behind.
    write("mode", dataFile("02D12000"));
    setLock(0);
    EXPECT_EQ(line + "0\n0\n",
              run("sh -c '$VIRTUAL_BOARD --bus-log early --time-scale 0.2 $PMADMIN -E mode >compared & "
                  "until grep -q \"9D Sr\" early 2>/dev/null; do :; done; $PMADMIN -a; $PMSTATUS --brief; "
                  "grep -c \"w D1\" early; wait $!; echo $?'")
                  .output);
}

} // namespace
