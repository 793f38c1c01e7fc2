// An upgrade: what is looked at before anything is written, then writing, looking at the supplies,
// and storing; the return where that fails.
#include <algorithm>

#include "listLine.h"
#include "run.h"
#include "runFolder.h"
#include "text.h"
#include "textFile.h"

namespace {

class Upgrade {
public:
    explicit Upgrade(Run& theRun) : run(theRun) {}

    Outcome go();

private:
    std::string takeFile();
    std::string checkFile();
    std::string checkNote();
    std::string takeBackup();
    std::string adoptBackup();
    std::string lookBefore();
    std::string lookAhead();
    std::string compareIdentity();
    Outcome endWithNothing();
    Outcome writeAll();
    Outcome fail(const std::string& why, bool hasStored);

    /// The options of check and make.
    Words withAllowed(const Words& begin, const Words& rest) const;
    bool allows(const std::string& problem) const;

    Run& run;
    std::string file; ///< the copy of FILE
    FileFacts facts;
    std::set<int> spared;
    bool madeFromList = false;
};

Words Upgrade::withAllowed(const Words& begin, const Words& rest) const
{
    Words command = begin;
    for (const std::string& problem : run.options.allowed) {
        command.insert(command.end(), {"--allow", problem});
    }
    command.insert(command.end(), rest.begin(), rest.end());
    return command;
}

bool Upgrade::allows(const std::string& problem) const
{
    return std::ranges::any_of(run.options.allowed, [&](const std::string& allowed) {
        return allowed == problem || allowed == "all";
    });
}

std::string Upgrade::takeFile()
{
    std::string error;
    file = "file.hex";
    if (!isList(run.fileText)) {
        writeSynced(file, run.fileText, error);
        return error;
    }
    madeFromList = true;
    const std::string list = "file.settings";
    if (!writeSynced(list, run.fileText, error)) {
        return error;
    }
    const Words make = withAllowed({"pmfile", "make"}, {list, "-o", file});
    return run.report.step("Make the file from the list", make).status == 0
               ? ""
               : "no file could be made from the list";
}

std::string Upgrade::checkFile()
{
    const Words check =
        withAllowed({"pmfile", "check", "--deny", "no-setting", "--deny", "access"}, {file});
    if (run.report.step("Check the file", check, Shows::ALL).status != 0) {
        return "the file has problems, or can't be checked (--allow NAME accepts a problem)";
    }
    const auto known = run.factsOf(file);
    run.record.file = run.hashOf(file);
    if (!known || run.record.file.empty()) {
        return "the file can't be read";
    }
    facts = *known;
    run.record.fileVersion = facts.version;
    return "";
}

/// A note is for the file that was being written, and for the way back.
std::string Upgrade::checkNote()
{
    if (!run.hasNote || run.note.file == run.record.file) {
        return "";
    }
    const std::string other = run.keep + "/" + run.note.folder + "/file.hex";
    return "another file was being written; go on with it by " + run.own({other})
           + ", or return to what was before it by " + run.own({"--return"});
}

std::string Upgrade::adoptBackup()
{
    std::string text;
    std::string error;
    const std::string backup = "backup.hex";
    if (!readText("../" + run.note.folder + "/backup.hex", text, error)
        || !writeSynced(backup, text, error)) {
        return error;
    }
    if (run.hashOf(backup) != run.note.backup) {
        return "the backup is not what it was when the run began";
    }
    const std::string now = "chip.hex";
    if (run.report.step("Read which chip it is", {"pmfile", "read", "-o", now}).status != 0) {
        return "what the chip holds can't be read";
    }
    const auto chip = run.factsOf(now);
    if (!chip || !chip->serial || !chip->location) {
        return "what the chip holds can't be read";
    }
    if (!isBetween({*chip->serial, *chip->location}, run.note.chip, run.note.fileIdentity)) {
        return "it is another chip than the one that was being written; to set the note aside: "
               + typed({"mv", run.notePath(), run.notePath() + ".old"});
    }
    run.record.backup = run.note.backup;
    run.record.backupVersion = run.note.backupVersion;
    run.record.chip = run.note.chip;
    return "";
}

std::string Upgrade::takeBackup()
{
    std::string error = run.findHardware();
    if (error.empty()) {
        error = run.hasNote ? adoptBackup() : run.backUp();
    }
    if (error.empty()) {
        run.record.fileIdentity = {facts.serial.value_or(run.record.chip.serial),
                                   facts.location.value_or(run.record.chip.location)};
        error = run.makeWayBack("backup.hex");
    }
    return error;
}

std::string Upgrade::lookBefore()
{
    const auto states = run.look("Look at the supplies", 1);
    if (!states) {
        return "it can't be told how the supplies are";
    }
    if (states->writeProtect != 0) {
        return formatted("the chip is write-protected (WRITE_PROTECT 0x%02X)",
                         static_cast<unsigned int>(states->writeProtect));
    }
    run.record.model = states->model;
    run.record.states = run.hasNote ? run.note.states : states->rails;
    for (const auto& [page, rail] : states->rails) {
        if (run.options.isAnyway && rail.state == "fault") {
            spared.insert(page);
        }
    }
    return states->isFault && !run.hasNote && !run.options.isAnyway
               ? "a supply or sensor has a fault (--anyway goes on)"
               : "";
}

std::string Upgrade::lookAhead()
{
    const auto ahead = run.look("Look at them as if the chip held the file", 1, {file});
    if (!ahead) {
        return "it can't be told how the supplies would be";
    }
    if (ahead->isFault && !run.options.isAnyway) {
        return std::string("with the file a supply or sensor would have a fault (--anyway goes on")
               + (run.hasNote ? "; " + run.own({"--return"}) + " returns)" : ")");
    }
    spared.insert(ahead->faultsAtEnd.begin(), ahead->faultsAtEnd.end());
    run.look("Look at them as if it then held the backup again", 1, {file, run.wayBack});
    return "";
}

std::string Upgrade::compareIdentity()
{
    const bool isOverwritten = run.record.fileIdentity != run.record.chip;
    if (isOverwritten) {
        run.report.tell("The file overwrites serial number or location: now " + facts.serialText
                        + " " + facts.locationText);
    }
    return isOverwritten && !allows("identity")
               ? "the file would give the chip another identity (--allow identity accepts that)"
               : "";
}

/// The last run that wrote to this chip says what is in its flash.
bool isStored(const Run& run)
{
    for (const std::string& name : listRuns(run.keep)) {
        RunRecord record;
        std::string error;
        if (readRecord(run.keep + "/" + name + "/" + RECORD_NAME, record, error) == Found::RECORD
            && isBetween(run.record.chip, record.chip, record.fileIdentity)) {
            return !record.isReturn && record.status == 0 && record.file == run.record.file;
        }
    }
    return false;
}

Outcome Upgrade::endWithNothing()
{
    const std::string word = run.fileWord();
    const std::string store =
        madeFromList ? typed({"pmfile", "make", word, "-o", "made.hex"}) + " && pmadmin -e made.hex"
                     : typed({"pmadmin", "-e", word});
    return {End::DONE,
            "Nothing to do: the working registers hold the file already."
                + (isStored(run) ? "" : " Flash can't be read; to store them: " + store)};
}

Outcome Upgrade::fail(const std::string& why, bool hasStored)
{
    const std::string begin = "Failed: " + why + ". ";
    if (run.options.hasNoReturn) {
        return {End::LOST, begin + "The chip holds the file, or a part of it"
                               + (hasStored ? ", perhaps in flash, too" : "; flash is as it was")
                               + ". To return to what was before: " + run.own({"--return"})};
    }
    run.report.tell(begin + "Returning.");
    std::string error = hasStored ? run.waitForChip() : "";
    if (error.empty()) {
        error = run.write(run.wayBack);
    }
    if (error.empty() && hasStored) {
        error = run.store(run.wayBack);
    }
    if (const auto states = run.look("Look at the supplies", 1)) {
        run.statesAfter = states->rails;
    }
    if (!error.empty()) {
        return {End::LOST,
                begin + "The return failed, too: " + error
                    + ". It is not known what the chip holds. To return: " + run.own({"--return"})
                    + ", to try again: " + run.own({run.fileWord()})};
    }
    run.tellNotReturned(hasStored);
    return {End::RETURNED,
            begin + "What the working registers held before is back in them"
                + (hasStored ? " and in flash" : "; flash was not written")
                + (run.isLowered
                       ? formatted(", but for the hardware version, which is %d now", run.hardware)
                       : "")
                + ". To try again: " + run.own({run.fileWord()})};
}

Outcome Upgrade::writeAll()
{
    std::string error = run.begin(run.record);
    if (!error.empty()) {
        return run.refuse(error);
    }
    error = run.write(file);
    if (error.empty()) {
        error = run.judgeSupplies(run.record.states, spared);
    }
    if (!error.empty()) {
        return fail(error, run.record.hasStoreBegun);
    }
    run.record.hasStoreBegun = true;
    if (!writeRecord(run.notePath(), run.record, error)) {
        return fail(error, run.hasNote && run.note.hasStoreBegun);
    }
    bool isUnknown = false;
    error = run.store(file);
    if (error.empty()) {
        error = run.judgeStored(run.record.states, spared, isUnknown);
    }
    if (!error.empty()) {
        return fail(error, true);
    }
    return {End::DONE,
            "The chip holds the file, settings " + facts.version
                + ", in its working registers and in flash"
                + (isUnknown ? "; state of the supplies unknown (pmstatus shows it)" : "")
                + ". To return to settings " + run.record.backupVersion + ": "
                + run.own({"--return", run.runWord()})};
}

Outcome Upgrade::go()
{
    // In this order; the first that fails refuses the run.
    using Step = std::string (Upgrade::*)();
    constexpr Step STEPS[] = {&Upgrade::takeFile, &Upgrade::checkFile, &Upgrade::checkNote};
    for (const Step step : STEPS) {
        if (const std::string error = (this->*step)(); !error.empty()) {
            return run.refuse(error);
        }
    }
    std::string error = run.askChip();
    if (error.empty()
        && run.report.step("Check the hardware version", {"pmadmin", "-m", file}).status != 0) {
        error = "the file is for newer hardware, or the board's version can't be read";
    }
    constexpr Step LOOKS[] = {&Upgrade::takeBackup, &Upgrade::lookBefore, &Upgrade::lookAhead};
    for (const Step look : LOOKS) {
        error = error.empty() ? (this->*look)() : error;
    }
    if (error.empty()) {
        error = run.showDifference("backup.hex", file);
    }
    if (error.empty()) {
        error = compareIdentity();
    }
    if (!error.empty()) {
        return run.refuse(error);
    }
    const bool isEqual =
        run.report.step("Compare the chip with the file", {"pmadmin", "-E", file}).status == 0;
    if (isEqual && !run.hasNote) {
        return endWithNothing();
    }
    if (run.options.isDryRun) {
        return {End::DONE,
                "Dry run: nothing was written. To upgrade: " + run.own({run.fileWord()})};
    }
    run.record.hasStoreBegun = run.hasNote && run.note.hasStoreBegun;
    return writeAll();
}

} // namespace

Outcome upgrade(Run& run)
{
    return Upgrade(run).go();
}
