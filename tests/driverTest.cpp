// main itself, compiled under another name, with the system calls replaced: everything that a run does, from the
// command line to the exit status.
#include "PowerFileHandler.h"

#include <cerrno>

#include "fakeSystem.h"

int pmadminMain(int argc, char* argv[]);

namespace {

using Bytes = std::deque<std::uint8_t>;

// A file of version 2.1 for hardware 3, with a delay on page 1, and what reads of the same find.
const std::string ENTRIES = "010001 02603412 089D0102030000000000";
const Bytes SAME = {0x34, 0x12, 1, 2, 3, 0, 0, 0, 0, 0};
const Bytes OTHER(4);

class DriverTest : public SystemTest {
protected:
    /// Runs main with an option and, if there are entries, a file of them, at a trace level. `bus` is what is read
    /// after the start-up of a chip with version 2.1; the start-up appears as "START" in the result, and log lines
    /// about the file are left out.
    std::string run(const std::string& option, const std::string& entries, const Bytes& bus = SAME, int level = 6,
                    std::uint8_t model = 0x5A) const
    {
        write("file.hex", asRecord(entries));
        fakeSystem.bus = {0x4D, model, '0', '0', 1, 2, 0, 0, 0, 0, 0, 0};
        fakeSystem.bus.insert(fakeSystem.bus.end(), bus.begin(), bus.end());
        g_traceObject = g_traceObject == nullptr ? new TraceObject("test", level) : g_traceObject;
        setTraceLevel(level);
        transcript();
        std::string text = runMain(entries.empty() ? std::vector<std::string>{option} : std::vector{option, m_file});
        if (const std::size_t at = text.find("DEBUG parseLine"); at != std::string::npos) {
            text.erase(at, text.find("\n\n", at) + 2 - at);
        }
        const std::string start = START + LOCK + UNLOCK;
        const std::size_t at = text.find(start);
        return at == std::string::npos ? text : text.replace(at, start.size(), "START\n");
    }

    static std::string runMain(const std::vector<std::string>& arguments)
    {
        int status = -1;
        const std::string text = record([&] { status = callWith(arguments, pmadminMain); });
        EXPECT_EQ(nullptr, g_traceObject);
        return text + "status " + std::to_string(status);
    }

    const std::string m_file = m_folder + "/file.hex";
};

const std::string SUCCESS = "close 1000\ncloselog\nstatus 0";
const std::string FAILURE = "close 1000\ncloselog\nstatus 1";
const std::string LOADED = "START\naccess 0\n";
const std::string PAGE = "smbus 1000 write size 2: 00 01\n";
const std::string READ_DELAY = "smbus 1000 read size 3: 60\n";
const std::string STORE = "smbus 1000 write size 1: 11\nINFO save: Storing power monitor file to flash: success\n";
const std::string NEW_ENOUGH = "> Minimum HW version is OK to upgrade powermonitor.\n"
                               "INFO compareHwVersions: HW version 3 >= minimum HW version 3\n";
const std::string INSTALLED = "> Get installed Power monitor version\n> EEPROM version is v2.1\n";
const std::string VERSIONS = INSTALLED + "> New version is v2.1\n";
const std::string IS_EQUAL = "INFO compare: Power monitor file contents is equal to MAX34460 contents\n"
                             "> RAM registers are up-to-date.\n> EEPROM registers are up-to-date.\n";
const std::string EQUAL = LOCK + VERSIONS + PAGE + READ_DELAY + READ_DATE + IS_EQUAL + UNLOCK;
const std::string DIFFERENCE = "INFO compare: Data of command 60 differs (command index in file = 1)\n"
                               "INFO compare: Target data: 0000\nINFO compare: File data  : 1234\n";
const std::string IS_DIFFERENT = "ERROR compare: Data of command 60 differs (command index in file = 1)\n"
                                 "INFO compare: Power monitor file contents differs from MAX34460 contents\n"
                                 "> RAM registers are NOT up-to-date.\n> EEPROM registers are NOT up-to-date.\n";
const std::string DIFFERENT =
    LOCK + VERSIONS + PAGE + READ_DELAY + DIFFERENCE + READ_DELAY + DIFFERENCE + IS_DIFFERENT + UNLOCK;
const std::string WRITTEN = "INFO writeCommands: Writing power monitor file: success\n";
const std::string WRITE = LOCK + PAGE + "smbus 1000 write size 3: 60 1234\n"
                          + "smbus 1000 write size 6: 9d 01 02 03 00 00 00 00 00\n" + WRITTEN + UNLOCK;

TEST_F(DriverTest, EachActionOnAChipThatHoldsTheFile)
{
    const auto tooOld = [](const std::string& board, const std::string& minimum = "3") {
        return LOADED + "! Minimum required HW version for updates is " + minimum + "(hwver=" + board
               + "))\nWARNING compareHwVersions: HW version " + board + " incompatible with minimum HW version "
               + minimum + " of the power file\n" + FAILURE;
    };
    const std::tuple<const char*, std::string, std::optional<int>, std::string> cases[] = {
        {"-E", ENTRIES, 3, LOADED + EQUAL + SUCCESS},
        {"-r", ENTRIES, 3, LOADED + NEW_ENOUGH + WRITE + SUCCESS},
        {"-r", ENTRIES, 2, tooOld("2")},
        {"-u", ENTRIES, 3, LOADED + NEW_ENOUGH + EQUAL + FAILURE},
        {"-m", ENTRIES, 3, LOADED + NEW_ENOUGH + SUCCESS},
        {"-m", ENTRIES, -1, tooOld("-1")},
        {"-m", ENTRIES, {}, tooOld("0")},
        {"-m", "010001", {}, tooOld("0", "0")}, // an unknown version is not version 0
        {"-e", ENTRIES, 2, LOADED + LOCK + STORE + UNLOCK + SUCCESS},
        {"-v", "", 3, "START\n" + INSTALLED + SUCCESS},
        {"-a", "", 3, "START\nINFO isAccessible: Power monitor accessible\n" + SUCCESS},
        {"--", "", 3, "START\n! No option selects an action: give one of -v -m -R -E -r -e -a -u.\n" + FAILURE},
    };
    for (const auto& [option, entries, hwVersion, expected] : cases) {
        fakeSystem.hwVersion = hwVersion;
        EXPECT_EQ(expected, run(option, entries)) << option;
    }
}

TEST_F(DriverTest, AnUpgradeWritesStoresAndConfirms)
{
    Bytes otherThenSame = OTHER;
    otherThenSame.insert(otherThenSame.end(), SAME.begin(), SAME.end());
    const std::string stored = LOADED + NEW_ENOUGH + DIFFERENT + WRITE + "sleep 2\n" + LOCK + STORE + UNLOCK;
    EXPECT_EQ(stored + EQUAL + "INFO main: Power monitor successfully upgraded\n" + SUCCESS,
              run("-u", ENTRIES, otherThenSame));
    EXPECT_EQ(stored + DIFFERENT + "ERROR main: Save/compare failed\n" + FAILURE, run("-u", ENTRIES, OTHER));
}

/// What an operation does while it holds the lock, with its debug lines.
std::string section(const std::string& operation, const std::string& text)
{
    return LOCK + "DEBUG PmMutexLock: Semaphore acquired by PowerFileHandler::" + operation + "\n" + text + UNLOCK
           + "DEBUG ~PmMutexLock: Semaphore released by PowerFileHandler::" + operation + "\n";
}

TEST_F(DriverTest, WhatIsComparedAndWhatIsWritten)
{
    const std::string begin =
        START + "DEBUG setHwState: State changed from 0 to 1\n" + section("PowerFileHandler", "") + "access 0\n";
    const std::string end = "DEBUG clear: \nDEBUG clear: \n" + SUCCESS;
    const std::string entries = "02D13412 010001 0003 0011 0012 02EA0100 02600102";
    const auto equal = [](const std::string& code) {
        return "DEBUG compare: Read command " + code + " (try 2 times)\nsmbus 1000 read size 3: " + code
               + "\nDEBUG operator==: \nDEBUG compare: \nDEBUG compare: Data of command " + code + " equal\n";
    };
    // MFR_CHANNEL_NOMINAL can't be read back on the model 0x57 alone, but it can be written.
    for (const auto& [model, nominal] : {std::pair<int, std::string>{0x57, ""}, {0x56, equal("ea")}}) {
        const Bytes read = model == 0x57 ? Bytes{0x34, 0x12, 1, 2} : Bytes{0x34, 0x12, 1, 0, 1, 2};
        const std::string compared = INSTALLED + "> New version is v0.0\n" + equal("d1") + PAGE
                                     + "DEBUG compare: Write page 1\n" + nominal + equal("60") + IS_EQUAL;
        EXPECT_EQ(begin + section("compare", compared) + end,
                  run("-E", entries, read, 7, static_cast<std::uint8_t>(model)));
    }
    const std::string written = run("-r", entries, {}, 7, 0x57);
    const std::string debug = "DEBUG1 writeCommands: Write ";
    EXPECT_EQ(section("writeCommands", debug + "d1 to page 0\nsmbus 1000 write size 3: d1 1234\n" + debug
                                           + "00 to page 1\n" + PAGE + debug
                                           + "ea to page 1\nsmbus 1000 write size 3: ea 0001\n" + debug
                                           + "60 to page 1\nsmbus 1000 write size 3: 60 0201\n" + WRITTEN)
                  + end,
              written.substr(std::min(written.rfind(LOCK), written.size())));
    EXPECT_NE(std::string::npos, run("-e", entries, {}, 7).find(section("save", STORE)));
}

TEST_F(DriverTest, CompareToleratesAFailedPageAndOneFailedRead)
{
    const std::string reading = "DEBUG compare: Read command e0 (try ";
    const std::string read = "smbus 1000 read size 3: e0\n";
    fakeSystem.resultsOf = {{read, {-EIO, -EIO, -EIO, -EIO}}, {PAGE, {-ENXIO, -ENXIO, -ENXIO}}};
    const std::string failure = "Read command e0 on page 255 failed, Input/output error";
    const std::string text = run("-E", "02E00000010001", {}, 7);
    const std::string expected = reading + "2 times)\n" + attempts(read, failure)
                                 + "ERROR compare: Read/write failed for command e0 on page 255\n" + reading
                                 + "1 times)\n" + attempt(1, read, failure) + read
                                 + "DEBUG operator==: \nDEBUG compare: \nDEBUG compare: Data of command e0 equal\n"
                                 + attempts(PAGE, "Write command 00 on page 1 failed, No such device or address")
                                 + "DEBUG compare: Write page 1\n" + IS_EQUAL;
    EXPECT_NE(std::string::npos, text.find(expected)) << text;
}

TEST_F(DriverTest, AFileThatIsMissingOrBrokenIsNotUsed)
{
    setTraceLevel(6);
    const std::string text = runMain({"-u", "no.hex"});
    EXPECT_EQ("access 0\n! *** File 'no.hex' not found. ***\nERROR main: File 'no.hex' not found.\n" + FAILURE,
              text.substr(text.find("access")));
    const std::string broken =
        "File '" + m_file
        + "' is not a valid PM data file: the entry at byte 0 in line 1 (command 25) has 1 data bytes of 2";
    EXPECT_EQ(LOADED + "! *** " + broken + " ***\nERROR main: " + broken + "\n" + FAILURE, run("-r", "01252B"));
    EXPECT_EQ(std::string::npos, runMain({"-r"}).find("open /dev")) << "nor the chip, with a bad command line";
}

// Parts of the handler that no run of main reaches.
TEST_F(DriverTest, TheHandlersListsAndVersions)
{
    fakeSystem.bus = {0x4D, 0x57, '0', '0', 1, 2};
    PowerFileHandler handler;
    const MfrFwSerial serial;
    EXPECT_FALSE(handler.isComparable(&serial)) << "model 57 does not give it back";
    setTraceLevel(6);
    transcript();
    const std::string differ = "WARNING compare: Target commands and file commands sizes are different or 0\n";
    handler.getFileCommands() = {nullptr, new Page};
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(LOCK + differ + UNLOCK + "false\n", recordResult([&handler] { return handler.compare(); }));
        handler.getFileCommands().swap(handler.getTargetCommands());
    }
    handler.clear(handler.getFileCommands());
    EXPECT_TRUE(handler.getFileCommands().empty());
    // The page is taken from every command of that code and size.
    handler.getFileCommands() = {new ByteCommand(0, 3, 3, 3), new VoutMarginHigh};
    handler.getFileCommands()[0]->setData(reinterpret_cast<const std::uint8_t*>("\x0d"));
    EXPECT_EQ(LOCK + "smbus 1000 write size 2: 00 0d\nERROR write: Write command 25 on page 13 not allowed\n"
                  + "INFO writeCommands: Writing power monitor file: failed\n" + UNLOCK + "false\n",
              recordResult([&handler] { return handler.writeCommands(); }));
    for (const auto& [minor, major] : {std::pair<std::uint8_t, std::uint8_t>{1, 2}, {0, 2}, {1, 3}}) {
        const std::uint8_t bytes[8] = {minor, major};
        MfrDate mfrDate;
        mfrDate.setData(bytes);
        handler.setFileMfrDate(mfrDate);
        const std::string version = std::to_string(major) + "." + std::to_string(minor);
        EXPECT_EQ(version == "2.1" ? "INFO comparePowerFileVersions: Versions equal: version 2.1\ntrue\n"
                                   : "WARNING comparePowerFileVersions: Versions differ : file version " + version
                                         + " <-> Target version 2.1\nfalse\n",
                  recordResult([&handler] { return handler.comparePowerFileVersions(); }));
    }
}

TEST_F(DriverTest, WithoutATraceObjectMainMakesOneForInfos)
{
    delete std::exchange(g_traceObject, nullptr);
    transcript();
    fakeSystem.results = {-ENOENT};
    EXPECT_EQ("openlog corvane 1 8\n" + OPEN
                  + "ERROR Max34460: Cannot open I2C driver /dev/i2c-0: No such file or directory\n"
                    "ERROR setHwError: Error set, m_hwErrorCount = 1\n"
                  + LOCK + UNLOCK + "INFO isAccessible: Power monitor not accessible\ncloselog\nstatus 1",
              runMain({"-a"}));
}

} // namespace
