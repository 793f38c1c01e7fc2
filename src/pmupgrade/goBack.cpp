// A return: the settings from before an upgrade are written back and stored.
#include <unistd.h>

#include <cstdio>

#include "run.h"
#include "runFolder.h"
#include "text.h"

namespace {

class Return {
public:
    explicit Return(Run& theRun) : run(theRun) {}

    Outcome go();

private:
    std::string findUpgrade();
    std::string prepare();
    std::string checkIdentity();
    std::string confirm() const;
    Outcome writeAll();

    Run& run;
    RunRecord upgrade; ///< what is taken back
};

/// What a note is for, or else the run that is named, or the last upgrade that wrote.
std::string Return::findUpgrade()
{
    const std::vector<std::string> runs = listRuns(run.keep);
    const auto named = run.options.run ? findRun(run.keep, *run.options.run) : std::nullopt;
    if (run.options.run && (!named || *named == run.name)) {
        return "there is no run " + printable(*run.options.run) + " in " + run.keep;
    }
    if (run.hasNote) {
        upgrade = run.note;
        return !named || *named == run.note.folder
                   ? ""
                   : "another run is not at its end; first return from that: "
                         + run.own({"--return"});
    }
    std::string error;
    for (const std::string& name : named ? std::vector{*named} : runs) {
        const Found found = readRecord(run.keep + "/" + name + "/" + RECORD_NAME, upgrade, error);
        if (found == Found::RECORD && !upgrade.isReturn) {
            upgrade.folder = name;
            return "";
        }
        if (named) {
            return found == Found::BROKEN   ? error
                   : found == Found::RECORD ? "run " + name + " was a return; name an upgrade"
                                            : "run " + name + " wrote nothing";
        }
    }
    return "no upgrade was made from " + run.keep + "; there is nothing to return to";
}

/// Knows what the chip holds now, and the file to return with.
std::string Return::prepare()
{
    std::string error = run.askChip();
    if (error.empty()) {
        error = run.findHardware();
    }
    if (error.empty()) {
        error = run.backUp();
    }
    if (!error.empty()) {
        return error;
    }
    const std::string backup = "../" + upgrade.folder + "/backup.hex";
    return run.hashOf(backup) == upgrade.backup
               ? run.makeWayBack(backup)
               : "the backup of run " + upgrade.folder + " is not what it was when that began";
}

std::string Return::checkIdentity()
{
    if (!isBetween(run.record.chip, upgrade.chip, upgrade.fileIdentity)) {
        return "the chip bears neither the identity of the backup nor that of the file"
               + (run.hasNote ? "; to set the note aside: "
                                    + typed({"mv", run.notePath(), run.notePath() + ".old"})
                              : "");
    }
    if (isFactory(run.record.chip)) {
        run.report.tell(
            "The chip bears the factory's identity, as others do: whether it is the one "
            "that was upgraded can't be told.");
    }
    return "";
}

/// Without a note and without a run that is named, a person has to say yes.
std::string Return::confirm() const
{
    if (run.hasNote || run.options.run || run.options.isDryRun) {
        return "";
    }
    if (isatty(STDIN_FILENO) != 1) {
        return "name the run to return from: "
               + run.own({"--return", std::to_string(numberOfRun(upgrade.folder))});
    }
    std::printf("Return to settings %s of %s? Type yes: ", upgrade.backupVersion.c_str(),
                upgrade.date.c_str());
    std::fflush(stdout);
    char answer[8] = "";
    return std::fgets(answer, sizeof(answer), stdin) != nullptr
                   && trimmed(std::string(answer).substr(0, std::string(answer).find('\n')))
                          == "yes"
               ? ""
               : "nobody said yes";
}

Outcome Return::writeAll()
{
    // Until its end, the way back and the upgrade are both open.
    RunRecord underWay = upgrade;
    underWay.states = run.record.states;
    underWay.status = -1;
    underWay.hasStoreBegun = run.hasNote && run.note.hasStoreBegun;
    std::string error = run.begin(underWay);
    if (!error.empty()) {
        return run.refuse(error);
    }
    const std::string again = ". To try again: " + run.own({"--return"});
    error = run.write(run.wayBack);
    if (!error.empty()) {
        return {End::LOST, "Failed: " + error + ". It is not known what the chip holds" + again};
    }
    error = run.judgeSupplies(run.record.states, {});
    if (!error.empty()) {
        return {End::LOST, "Failed: " + error
                               + ". The working registers hold the settings from before; flash was "
                                 "not written"
                               + again};
    }
    underWay.hasStoreBegun = true;
    if (!writeRecord(run.notePath(), underWay, error)) {
        return {End::LOST, "Failed: " + error
                               + ". The working registers hold the settings from before; flash was "
                                 "not written"
                               + again};
    }
    bool isUnknown = false;
    error = run.store(run.wayBack);
    if (error.empty()) {
        error = run.judgeStored(run.record.states, {}, isUnknown);
    }
    if (!error.empty()) {
        return {End::LOST, "Failed: " + error + ". It is not known what the flash holds" + again};
    }
    run.tellNotReturned(true);
    return {End::DONE,
            "The chip holds the settings from before, " + upgrade.backupVersion
                + ", in its working registers and in flash"
                + (run.isLowered
                       ? formatted(", but for the hardware version, which is %d now", run.hardware)
                       : "")
                + (isUnknown ? "; state of the supplies unknown (pmstatus shows it)" : "") + "."};
}

Outcome Return::go()
{
    std::string error = findUpgrade();
    if (error.empty()) {
        run.report.tell("Return from run " + upgrade.folder + " of " + printable(upgrade.date)
                        + ": settings " + printable(upgrade.fileVersion) + " to "
                        + printable(upgrade.backupVersion));
        run.record.isReturn = true;
        run.record.file = upgrade.file;
        run.record.fileVersion = upgrade.fileVersion;
        run.record.fileIdentity = upgrade.fileIdentity;
        error = prepare();
    }
    if (error.empty()) {
        error = checkIdentity();
    }
    if (!error.empty()) {
        return run.refuse(error);
    }
    if (const auto states = run.look("Look at the supplies", 1)) {
        run.record.model = states->model;
        run.record.states = states->rails;
    }
    error = run.showDifference("backup.hex", run.wayBack);
    if (error.empty()) {
        error = confirm();
    }
    if (!error.empty()) {
        return run.refuse(error);
    }
    if (run.options.isDryRun) {
        return {End::DONE,
                "Dry run: nothing was written. To return: "
                    + run.own({"--return", std::to_string(numberOfRun(upgrade.folder))})};
    }
    return writeAll();
}

} // namespace

Outcome goBack(Run& run)
{
    return Return(run).go();
}
