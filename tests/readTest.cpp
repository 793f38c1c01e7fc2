// pmfile as a whole program: what it reads from a chip, the way back, and where its output goes.
#include <algorithm>

#include "boardRun.h"

namespace {

constexpr int KILLED = 128 + 9;

/// A board with the settings of board A, and the file that reading them gives.
class ReadTest : public BoardRun {
protected:
    ReadTest()
    {
        EXPECT_EQ(0, run("$PMADMIN -u $EXAMPLES/board-a.hex").status);
        EXPECT_EQ(0, run("$PMFILE read -o good.hex").status);
        m_good = readFile(path("good.hex"));
    }

    std::string m_good;
};

TEST_F(ReadTest, EverySettingOnceInTheOrderOfAList)
{
    EXPECT_EQ("", run("$PMFILE check --allow identity good.hex").output);
    EXPECT_EQ("identity: MFR_LOCATION: only in good.hex: \"10101010\"\n"
              "identity: MFR_SERIAL: only in good.hex: \"10101010\"\n",
              run("$PMFILE diff good.hex $EXAMPLES/board-a.hex").output);
    EXPECT_EQ(0, run("$PMADMIN -E good.hex").status);
    const std::string list = run("$PMFILE source good.hex").output;
    EXPECT_EQ(18, std::count(list.begin(), list.end(), '['));
    EXPECT_EQ(list.size(), list.find("MFR_DATE                2.5 hw 3\n") + 33) << list;
    EXPECT_EQ(
        "", run("sh -c '$PMFILE read --like $EXAMPLES/small.hex | $PMFILE source - >like; "
                "$PMFILE source $EXAMPLES/small.hex | cut -d \" \" -f 1 >small; cut -d \" \" -f 1 like | diff - small'")
                .output);
    write("twice.hex", ":0E00000001000302D1000001000402D10000FF\n");
    const std::string once = run("sh -c '$PMFILE read --like twice.hex | $PMFILE source -'").output;
    EXPECT_LT(once.find("MFR_MODE"), once.size()) << once;
    EXPECT_EQ(once.find("MFR_MODE"), once.rfind("MFR_MODE")) << "what is common to the device";
    EXPECT_EQ("2pmfile: good.hex: already exists; use --force to replace it\n",
              std::to_string(run("$PMFILE read -o good.hex").status) + run("$PMFILE read -o good.hex").errors);
    EXPECT_EQ(0, run("$PMFILE read --force --no-identity -o good.hex").status);
    EXPECT_EQ("", run("$PMFILE diff good.hex $EXAMPLES/board-a.hex").output);
    const Outcome without = run("$PMFILE read", "--model 0x57");
    EXPECT_EQ("pmfile: MFR_CHANNEL_NOMINAL can't be read back on this model and is left out\n", without.errors);
    EXPECT_EQ(0U, run("sh -c '$PMFILE read | $PMFILE check --allow identity -'", "--model 0x57")
                      .output.find("-:59: warning: the file sets no channel's MFR_CHANNEL_NOMINAL"));
    EXPECT_EQ(m_good.size(), without.output.size() + 132) << "twelve entries of four bytes, in 16-byte records";
}

TEST_F(ReadTest, ItIsTheWholeTruthOrNoFile)
{
    const std::string unsteady = " does not stay selected: the chip is write-protected, or another program uses it "
                                 "without the lock";
    const std::string silent = "the power monitor does not answer on /dev/i2c-0: No such device or address";
    std::string selections;
    for (int i = 0; i < 22000; ++i) {
        selections += ":030000000100" + std::string(i % 2 == 0 ? "05" : "06") + "FF\n";
    }
    write("volts.hex", selections + ":070000000100030242FF7FFF\n");
    write("like.hex", ":0A0000000100030242FF7F010180FF\n");
    write("nominal.hex", ":0700000001000302EAC409FF\n");
    write("mode.hex", ":0400000002D12000FF\n");
    write("action.hex", ":020000000003FF\n");
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"", "--fault open=ENOENT", "/dev/i2c-0 can't be opened: No such file or directory"},
        {"--bus 7", "", "/dev/i2c-7 can't be opened: No such file or directory"},
        {"", "--fault busy", "the address 0x74 of /dev/i2c-0 is taken by a kernel driver"},
        {"", "--fault absent", silent},
        {"", "--fault silent-after=1",
         "the power monitor on /dev/i2c-0 answered at first, but can't be identified (see the system log)"},
        {"", "--fault stuck=99:FF=4E", "the chip on /dev/i2c-0 is not a MAX34460 (MFR_ID is not 0x4D)"},
        {"", "--fault stuck=99:FF=FF",
         "the chip on /dev/i2c-0 answers 0xFF, as one does that is locked or without power"},
        {"--like volts.hex", "--fault stuck=42:FFFF=FFFF",
         "every setting reads 0xFF, as from a chip that is locked or without power"},
        {"--like nominal.hex", "--model 0x57",
         "MFR_CHANNEL_NOMINAL can't be read back on this model and is left out\npmfile: no setting is left to read"},
        {"", "--fault code=43@5:nack", "VOUT_UV_WARN_LIMIT of channel 5 can't be read: No such device or address"},
        {"", "--fault code=00@4:timeout", "PAGE can't be read on channel 4: Connection timed out"},
        {"", "--fault 45-47:timeout", "channel 1 can't be selected: Connection timed out"},
        {"", "--fault keep=00@4", "channel 5" + unsteady},
        {"", "--fault stuck=00@7:FF=08", "channel 7" + unsteady},
    };
    const auto start = memory();
    for (const auto& [options, fault, message] : cases) {
        setMemory(start);
        const Outcome outcome = run(std::string("$PMFILE read -o file.hex ") + options, fault);
        EXPECT_EQ(2, outcome.status) << fault;
        EXPECT_EQ("pmfile: " + message + "; nothing was written\n", outcome.errors);
        EXPECT_EQ("", readFile(path("file.hex"))) << fault;
        EXPECT_EQ(1, lockValue()) << fault;
    }
    const Outcome like = run("$PMFILE read --like like.hex");
    EXPECT_EQ("pmfile: like.hex:1: OPERATION is left out: it is not a setting, or not one of channel 3\n", like.errors);
    EXPECT_EQ(like.output, run("$PMFILE read --like volts.hex").output) << "no page without a setting";
    EXPECT_EQ("pmfile: action.hex:1: CLEAR_FAULTS is left out: it is not a setting, or not one of device\n"
              "pmfile: action.hex: contains no settings that can be read\n",
              run("$PMFILE read --like action.hex").errors);
    EXPECT_EQ("", run("$PMFILE read --like mode.hex", "--fault stuck=D1:FFFF=FFFF").errors) << "no unit, no board";
    EXPECT_EQ(m_good, run("$PMFILE read", "--fault open=EINTR*2").output);
}

TEST_F(ReadTest, WhatOthersDoMeanwhile)
{
    const std::string thief = "$VIRTUAL_BOARD $BUS_USER page ";
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {thief + "5", "0", "", m_good},
        {thief + "255", "0", "", m_good},
        {"$PMADMIN -a >/dev/null", "2", " took the lock of the power monitor over; nothing was written", ""},
        {"$PMFILE read 2>&1 | grep -c \" has the lock of the power monitor: let it end\" >second", "0", "", m_good},
        {"kill -TERM $(cat pid)", "143", "", ""},
        {"echo mine >file.hex", "2", "file.hex: already exists", "mine\n"},
    };
    for (const auto& [meanwhile, status, message, content] : cases) {
        const Outcome outcome = run(
            "sh -c 'rm -f all file.hex; { $VIRTUAL_BOARD --bus-log all --time-scale 100 --fault code=43@3*1:timeout "
            "sh -c \"echo \\$\\$ >pid; exec $PMFILE read -o file.hex\"; echo $?; } & "
            "until grep -q ETIMEDOUT all 2>/dev/null; do :; done; kill -STOP $(cat pid); "
            + meanwhile + "; kill -CONT $(cat pid); wait'");
        EXPECT_EQ(status + "\n", outcome.output) << meanwhile;
        EXPECT_TRUE(outcome.errors.find(message) < std::string::npos && outcome.errors.empty() == message.empty())
            << outcome.errors;
        EXPECT_EQ(content, readFile(path("file.hex"))) << meanwhile;
        EXPECT_EQ(1, lockValue()) << meanwhile;
    }
    EXPECT_EQ("1\n", readFile(path("second")));
}

// A chip from the factory asks for hardware version 49.
TEST_F(ReadTest, TheWayBackToTheFactory)
{
    EXPECT_EQ(
        0, run("sh -c '$PMFILE read -o factory.hex && $PMADMIN -u $EXAMPLES/board-a.hex && ! $PMADMIN -u factory.hex "
               "&& $PMFILE source factory.hex | sed \"s/ hw 49/ hw 3/\" | $PMFILE make --allow all - -o low.hex "
               "&& $PMADMIN -u low.hex && $PMADMIN -E low.hex'",
               "--board factory")
               .status);
}

// It also works from the mixture that a killed upgrade left.
TEST_F(ReadTest, TheWayBack)
{
    const auto before = memory();
    int status = KILLED;
    for (int n = 1; status == KILLED; n += SLOW ? 5 : 1) {
        setMemory(before);
        status = run("$PMADMIN -u $EXAMPLES/small.hex", "--fault " + std::to_string(n) + ":kill-after").status;
        EXPECT_EQ(0, run("sh -c '$PMADMIN -E good.hex && $PMADMIN -e good.hex || $PMADMIN -u good.hex'").status) << n;
        EXPECT_EQ(settings(before).ram, settings(memory()).ram) << n;
        EXPECT_EQ(settings(before).flash, settings(memory()).flash) << n;
    }
}

TEST_F(ReadTest, WhereTheOutputGoes)
{
    const std::string help = " (see pmfile --help)";
    const std::tuple<const char*, int, std::string> cases[] = {
        {"$PMFILE --version", 0, ""},
        {"$PMFILE", 2, "no command" + help},
        {"$PMFILE shew x", 2, "there is no command 'shew'" + help},
        {"$PMFILE show", 2, "show takes one file" + help},
        {"$PMFILE diff x", 2, "diff takes two files" + help},
        {"$PMFILE check", 2, "check needs a file" + help},
        {"$PMFILE read x", 2, "read takes no file except in its options" + help},
        {"$PMFILE diff x --like y", 2, "diff has no option '--like'" + help},
        {"$PMFILE show --jason x", 2, "show has no option '--jason'" + help},
        {"$PMFILE show -x", 2, "show has no option '-x'" + help},
        {"$PMFILE check x --allow", 2, "option '--allow' needs a value" + help},
        {"$PMFILE read --bus 256", 2, "--bus takes the number of an I2C bus, from 0 to 255" + help},
        {"$PMFILE source --json x", 2, "source has no option '--json'" + help},
        {"$PMFILE diff --names no x y", 2, "no: cannot be read: No such file or directory"},
        {"$PMFILE make x -o", 2, "option '-o' needs a value" + help},
        {"$PMFILE check --allow no-nominal,address x", 2, ""},
        {"sh -c '$PMFILE show good.hex >/dev/full'", 2, "standard output: No space left on device"},
        {"sh -c '$PMFILE read >/dev/full'", 2, "standard output: No space left on device"},
        {"sh -c 'mkfifo p; exec 3<>p 4>p 3>&-; $PMFILE source good.hex >&4'", 2, "standard output: Broken pipe"},
        {"sh -c '$PMFILE source good.hex >list; ln -s list link; $PMFILE make --allow identity list -o link'", 2,
         "link: is the input, which would be lost\npmfile: link is left as it was"},
        {"$PMFILE read --force --like good.hex -o good.hex", 2, "good.hex: is the input, which would be lost"},
        {"$PMFILE make --allow identity list -o /no/file", 2,
         "/no/file: cannot be written: No such file or directory\npmfile: /no/file was not made"},
        {"sh -c '$PMFILE make --allow identity list -o /dev/stdout | cmp good.hex && cat good.hex | $PMFILE diff - "
         "good.hex && cat good.hex | $PMADMIN -E /dev/stdin'",
         0, ""},
        {"sh -c 'cd $EXAMPLES; for name in board-a small; do $PMFILE make --allow partial $name.settings | cmp - "
         "$name.hex || exit; done'",
         0, ""},
        {"sh -c '$PMFILE make - -o list <list'", 2,
         "list: is the input, which would be lost\npmfile: list is left as it was"},
        {"$PMFILE make no -o no", 2, "no: cannot be read: No such file or directory\npmfile: no was not made"},
        {"sh -c ': >none; $PMFILE make none -o /dev/null'", 2, "none: contains no registers\npmfile: no file was made"},
        {"$PMFILE make --allow identity list -o /dev/null", 0, ""},
        {"sh -c 'head -c 2000000 /dev/zero >large; $PMFILE show large; rm large'", 0,
         "large: is too large for a PM data file"},
        {"sh -c 'umask 027; $PMFILE make list --allow identity -o fresh; [ $(stat -c %a fresh) = 640 ]'", 0, ""},
        // Counts of a build that measures coverage are files as well, which find no room.
        {"sh -c 'export GCOV_PREFIX=$PWD GCOV_ERROR_FILE=/dev/null; ulimit -f 1; $PMFILE make list --allow identity "
         "-o large; status=$?; ls large* >&2 2>/dev/null; exit $status'",
         2, "large: cannot be written: File too large\npmfile: large was not made"},
        {"sh -c 'chmod 640 good.hex; $PMFILE make --allow identity list -o good.hex; [ $(stat -c %a good.hex) = 640 ] "
         "&& ! ls good.hex.*'",
         0, ""},
        {"sh -c 'mkdir d; ln -s d/new dangling; $PMFILE make --allow identity list -o dangling && [ -L dangling ] && "
         "cmp d/new good.hex'",
         0, ""},
        {"sh -c 'ln -s loop loop; $PMFILE make --allow identity list -o loop'", 2,
         "loop: cannot be written: Too many levels of symbolic links\npmfile: loop was not made"},
        {"sh -c '$PMFILE read -o closed.hex >&- 2>&- && cmp closed.hex good.hex'", 0, ""},
        {"sh -c 'echo \"[channel 0\" >bad; : >out; $PMFILE make bad -o out; test -s out'", 1,
         "bad:1: a [section] ends with ]\npmfile: out is left as it was"},
    };
    for (const auto& [command, status, message] : cases) {
        const Outcome outcome = run(command);
        EXPECT_EQ(status, outcome.status) << command << outcome.errors;
        EXPECT_EQ(message.empty() ? "" : "pmfile: " + message + "\n", message.empty() ? "" : outcome.errors) << command;
        EXPECT_EQ(std::string::npos, outcome.errors.find("without a request")) << command;
    }
}

// They stand beside every number; pages without a name are still told as ranges.
TEST_F(ReadTest, NamesOfTheBoard)
{
    write("names", "[channel 1 AUX] # a comment\n[channel 3 CORE]\n[sensor 0 INLET]\nthe rest is not looked at\n");
    const std::pair<const char*, const char*> cases[] = {
        {"show --names names good.hex", "\npage 3: channel 3 CORE\n"},
        {"diff --names names good.hex $EXAMPLES/small.hex",
         "\nchannel 1 AUX: VOUT_OV_WARN_LIMIT: 5.400 V -> 5.350 V\n"},
        {"check --names names $EXAMPLES/small.hex",
         " of channel 2, channel 3 CORE, channels 4 to 11, sensors 1 to 4 and "},
    };
    for (const auto& [command, part] : cases) {
        const std::string named = run(std::string("$PMFILE ") + command).output;
        EXPECT_NE(std::string::npos, named.find(part)) << named;
    }
}

} // namespace
