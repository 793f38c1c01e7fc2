#include "run.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "loadFile.h"
#include "max34460.h"
#include "pmDataFile.h"
#include "pmFile.h"
#include "runFolder.h"
#include "text.h"

namespace {

/// A start of any program can take the page away from another.
constexpr int ATTEMPTS = 5;

/// How long the chip may be silent after a store, or pmstatus unable to tell: 5 s.
constexpr int CHIP_ATTEMPTS = 50;
constexpr unsigned int CHIP_PAUSE_US = 100000;
constexpr int LOOK_ATTEMPTS = 10;
constexpr unsigned int LOOK_PAUSE_US = 500000;

/// For supplies to settle and temperatures to be measured.
constexpr unsigned int SETTLE_TIME_S = 3;

/// pmstatus' exit status when it can't tell.
constexpr int STATUS_UNKNOWN = 3;

constexpr const char* AGAIN = "Once more";

constexpr const char* REPORT_NAME = "report.txt";

constexpr int HIGHEST_HARDWARE = 255;
constexpr std::size_t HARDWARE_BYTE = 2; // of MFR_DATE, behind the version

/// A PM data file that asks for a hardware version and says nothing else.
std::string hardwareFile(int version)
{
    std::vector<std::uint8_t> bytes = {MfrDate::SIZE, MfrDate::CODE};
    bytes.resize(bytes.size() + MfrDate::SIZE);
    bytes[2 + HARDWARE_BYTE] = static_cast<std::uint8_t>(version);
    return pmDataFile::makeRecords(bytes.data(), bytes.size());
}

std::string stateText(const RailState& rail)
{
    return rail.place + (rail.now.empty() ? "" : ", " + rail.now) + ", " + rail.state;
}

} // namespace

volatile std::sig_atomic_t g_isInterrupted = 0;

std::vector<std::string> newTroubles(const RailStates& before, const RailStates& after,
                                     const std::set<int>& spared)
{
    std::vector<std::string> troubles;
    for (const auto& [page, rail] : after) {
        const auto was = before.find(page);
        if (spared.contains(page)) {
            continue;
        }
        if (rail.state == "fault" && (was == before.end() || was->second.state != "fault")) {
            troubles.push_back(rail.place + " has a fault that it did not have");
        } else if (was != before.end() && was->second.runs && !rail.runs) {
            troubles.push_back(rail.place + " does not run any more");
        }
    }
    return troubles;
}

std::string Run::open()
{
    std::string error;
    const auto opened = openKeep(options.keep, error);
    if (!opened) {
        return error;
    }
    keep = *opened;
    m_keepWord = options.keep;
    // What is under way counts wherever it was begun.
    for (const std::string& other : {keep, std::string(DEFAULT_KEEP)}) {
        const Found found = readRecord(other + "/" + NOTE_NAME, note, error);
        if (found == Found::BROKEN) {
            return error;
        }
        if (found == Found::RECORD) {
            hasNote = true;
            m_keepWord = other == keep ? m_keepWord : other;
            keep = other;
            report.tell("A run is not at its end: " + notePath() + ", of " + printable(note.date));
            break;
        }
    }
    const auto made = makeRunFolder(keep, record.date, error);
    if (!made) {
        return error;
    }
    name = *made;
    record.folder = name;
    struct stat status = {};
    if (stat(options.file.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        m_fileWord = (options.file.starts_with('-') ? "./" : "") + options.file;
    }
    if (chdir(folder().c_str()) != 0) {
        return folder() + ": " + std::strerror(errno);
    }
    report.tell("In " + folder() + ":");
    return "";
}

void Run::finish(const Outcome& outcome)
{
    std::string error;
    record.status = static_cast<int>(outcome.end);
    if (hasWritten && !writeRecord(RECORD_NAME, record, error)) {
        report.tell(error);
    }
    const bool isSettled = outcome.end == End::DONE || outcome.end == End::RETURNED;
    if (hasWritten && isSettled && !removeSynced(notePath(), error)) {
        report.tell(error);
    }
    report.tell(outcome.line);
    if (!name.empty() && (hasWritten || outcome.end == End::REFUSED)
        && !writeSynced(REPORT_NAME, reportText(outcome), error)) {
        report.tell(error);
    }
    if (!name.empty() && !hasWritten) {
        clearFolder(folder(), {REPORT_NAME});
    }
}

std::string Run::reportText(const Outcome& outcome) const
{
    const auto statesText = [](const char* title, const RailStates& states) {
        std::string text = states.empty() ? "" : std::string("\n") + title + "\n";
        for (const auto& [page, rail] : states) {
            text += "    " + stateText(rail) + "\n";
        }
        return text;
    };
    const std::string source = options.isReturn ? "return" : printable(options.file);
    return "pmupgrade, run " + name + ", begun " + record.date + ": " + source + "\n\n"
           + formatted("Chip: model 0x%02X, ", static_cast<unsigned int>(record.model))
           + "serial number " + serialText + ", location " + locationText + "\n"
           + formatted("Board: hardware version %s\n",
                       hardware < 0 ? "unknown" : std::to_string(hardware).c_str())
           + "File: settings " + record.fileVersion + ", SHA-256 " + record.file + "\n"
           + "Backup: settings " + record.backupVersion + ", SHA-256 " + record.backup + "\n\n"
           + report.text() + statesText("Supplies before:", record.states)
           + statesText("Supplies after:", statesAfter)
           + formatted("\nExit status %d\n", static_cast<int>(outcome.end));
}

void Run::tellNotReturned(bool hasStored)
{
    if (record.model == MODEL_WITHOUT_NOMINAL) {
        report.tell("Not returned: MFR_CHANNEL_NOMINAL, which can't be read on model 0x57.");
    }
    if (hasStored) {
        report.tell("Not returned: what flash held that differed from the working registers.");
    }
    report.tell("Not returned: latched status bits; 'pmstatus --clear' clears them.");
}

std::string Run::own(const Words& words) const
{
    Words command = {"pmupgrade"};
    if (m_keepWord != DEFAULT_KEEP) {
        command.insert(command.end(), {"--keep", m_keepWord});
    }
    command.insert(command.end(), words.begin(), words.end());
    return typed(command);
}

std::string Run::runWord() const
{
    return std::to_string(numberOfRun(name));
}

std::string Run::fileWord() const
{
    return !m_fileWord.empty() ? m_fileWord : hasWritten ? folder() + "/file.hex" : options.file;
}

Outcome Run::refuse(const std::string& why) const
{
    return {End::REFUSED, "Refused: " + why + ". Nothing was written."};
}

Ended Run::repeat(const std::string& title, const Words& command, int times, unsigned int pauseUs)
{
    Ended ended = report.step(title, command);
    for (int i = 1; i < times && ended.status != 0; ++i) {
        usleep(pauseUs);
        ended = report.step(AGAIN, command);
    }
    return ended;
}

std::string Run::hashOf(const std::string& file)
{
    const Ended ended = report.step("Hash it", {"sha256sum", file});
    constexpr std::size_t DIGITS = 64;
    // A backslash stands before it where the name that follows has escapes.
    const std::size_t first = ended.output.starts_with('\\') ? 1 : 0;
    return ended.status == 0 ? ended.output.substr(first, DIGITS) : "";
}

std::optional<FileFacts> Run::factsOf(const std::string& file)
{
    const Ended ended = report.step("Read its settings", {"pmfile", "show", "--json", file});
    return ended.status == 0 ? parseFile(ended.output) : std::nullopt;
}

std::string Run::askChip()
{
    return repeat("Check that the chip answers", {"pmadmin", "-a"}, ATTEMPTS).status == 0
               ? ""
               : "the power monitor does not answer";
}

std::string Run::findHardware()
{
    std::string error;
    const std::string asking = "hardware.hex";
    int lowest = 0; // the answer is below it
    for (int step = (HIGHEST_HARDWARE + 1) / 2; step > 0; step /= 2) {
        if (!writeSynced(asking, hardwareFile(lowest + step - 1), error)) {
            return error;
        }
        const Ended ended = runProgram({"pmadmin", "-m", asking});
        lowest += ended.status == 0 ? step : 0;
    }
    // What was asked last may be one below the highest number that there is.
    if (!writeSynced(asking, hardwareFile(lowest), error)) {
        return error;
    }
    hardware = runProgram({"pmadmin", "-m", asking}).status == 0 ? lowest : lowest - 1;
    unlink(asking.c_str());
    report.tell("Find the board's hardware version: " + typed({"pmadmin", "-m", asking})
                + ", for several versions: "
                + (hardware < 0 ? "it has none" : std::to_string(hardware)));
    return "";
}

std::string Run::backUp()
{
    const std::string backup = "backup.hex";
    if (repeat("Back up what the chip holds", {"pmfile", "read", "-o", backup}, ATTEMPTS).status
        != 0) {
        return "what the chip holds can't be read";
    }
    if (repeat("Compare the chip with the backup", {"pmadmin", "-E", backup}, ATTEMPTS).status
        != 0) {
        return "the chip does not hold what was read from it";
    }
    const auto facts = factsOf(backup);
    record.backup = hashOf(backup);
    if (!facts || record.backup.empty() || !facts->serial || !facts->location) {
        return "the backup can't be read";
    }
    record.backupVersion = facts->version;
    record.chip = {*facts->serial, *facts->location};
    serialText = facts->serialText;
    locationText = facts->locationText;
    return "";
}

std::string Run::makeWayBack(const std::string& backup)
{
    wayBack = backup;
    if (report.step("Check that the board accepts the backup", {"pmadmin", "-m", backup}).status
        == 0) {
        return "";
    }
    std::string error;
    const auto file = loadFile(backup, error);
    if (file == nullptr || hardware < 0) {
        return file == nullptr ? error : "the board has no hardware version";
    }
    // The chip of a factory asks for hardware that no board has: such a record would bar the
    // return.
    std::vector<std::uint8_t> bytes = file->bytes;
    for (const Entry& entry : file->entries) {
        if (entry.code == MfrDate::CODE && entry.isValue()) {
            bytes[entry.offset + pmDataFile::ENTRY_HEAD_BYTES + HARDWARE_BYTE] =
                static_cast<std::uint8_t>(hardware);
        }
    }
    wayBack = "return.hex";
    isLowered = true;
    if (!writeSynced(wayBack, pmDataFile::makeRecords(bytes.data(), bytes.size()), error)) {
        return error;
    }
    return report.step("Check that it accepts this one", {"pmadmin", "-m", wayBack}).status == 0
               ? ""
               : "there is no file to return with";
}

std::optional<SupplyStates> Run::look(const std::string& title, int times, const Words& files)
{
    Words command = {"pmstatus", "--all", "--json"};
    for (const std::string& file : files) {
        command.insert(command.end(), {"--with", file});
    }
    for (int i = 0; i < times; ++i) {
        usleep(i == 0 ? 0 : LOOK_PAUSE_US);
        const Ended ended = report.step(i == 0 ? title : AGAIN, command);
        auto states = parseStates(ended.output);
        if (ended.status < STATUS_UNKNOWN && states) {
            states->isFault = ended.status == STATUS_UNKNOWN - 1;
            for (const std::string& line : states->forecast) {
                report.tell("    " + line);
            }
            return states;
        }
    }
    return std::nullopt;
}

std::string Run::showDifference(const std::string& from, const std::string& to)
{
    const Ended ended = report.step("Show what changes", {"pmfile", "diff", from, to}, Shows::ALL);
    if (ended.status > 1) {
        return "backup and file can't be compared";
    }
    return "";
}

std::string Run::begin(const RunRecord& underWay)
{
    if (g_isInterrupted != 0) {
        return "it was interrupted";
    }
    std::string error;
    // Before the note the folder that it leads to, which is synced with its record.
    if (!writeRecord(RECORD_NAME, record, error) || !syncFolder(keep, error)
        || !writeRecord(notePath(), underWay, error)) {
        return error;
    }
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGPIPE, SIGTSTP}) {
        std::signal(signal, SIG_IGN);
    }
    hasWritten = true;
    return "";
}

std::string Run::write(const std::string& file)
{
    for (int i = 0; i < ATTEMPTS; ++i) {
        const std::string title = i == 0 ? "Write the working registers" : AGAIN;
        if (report.step(title, {"pmadmin", "-r", file}).status == 0
            && report.step("Compare the chip with the file", {"pmadmin", "-E", file}).status == 0) {
            return "";
        }
    }
    return "the working registers could not be written";
}

std::string Run::judgeSupplies(const RailStates& before, const std::set<int>& spared)
{
    sleep(SETTLE_TIME_S);
    bool isUnknown = false;
    const std::string troubles = judgeStored(before, spared, isUnknown);
    return isUnknown ? "it can't be told how the supplies are" : troubles;
}

std::string Run::judgeStored(const RailStates& before, const std::set<int>& spared, bool& isUnknown)
{
    const auto states = look("Look at the supplies", LOOK_ATTEMPTS);
    isUnknown = !states.has_value();
    if (isUnknown) {
        return "";
    }
    statesAfter = states->rails;
    return joined(newTroubles(before, states->rails, spared));
}

std::string Run::waitForChip()
{
    return repeat("Wait until the chip answers", {"pmadmin", "-a"}, CHIP_ATTEMPTS, CHIP_PAUSE_US)
                       .status
                   == 0
               ? ""
               : "the chip does not answer any more";
}

std::string Run::store(const std::string& file)
{
    if (report.step("Store them in flash", {"pmadmin", "-e", file}).status != 0) {
        return "the settings could not be stored";
    }
    std::string error = waitForChip();
    if (error.empty()
        && repeat("Compare the chip with the file", {"pmadmin", "-E", file}, ATTEMPTS).status
               != 0) {
        error = "the chip does not hold what was stored";
    }
    return error;
}
