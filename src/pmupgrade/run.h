// A run of pmupgrade, and the steps that an upgrade and a return have in common. upgrade.cpp and
// goBack.cpp put them in order. A step returns why the run can't go on, in words; empty if it can.
#pragma once

#include <csignal>
#include <set>
#include <string>
#include <vector>

#include "commandLine.h"
#include "facts.h"
#include "report.h"
#include "runRecord.h"

/// The exit statuses.
enum class End {
    DONE = 0,
    REFUSED = 1,  ///< nothing was written
    RETURNED = 2, ///< it failed, and what the working registers held before is back in them
    LOST = 3      ///< it failed, and that is not so
};

struct Outcome {
    End end;
    std::string line; ///< the last line: what the chip holds, and what to type next
};

/// A signal has come that ends programs, before anything was written.
extern volatile std::sig_atomic_t g_isInterrupted;

class Run {
public:
    explicit Run(UpgradeOptions given) : options(std::move(given)) {}

    const UpgradeOptions options;
    RunReport report;
    std::string fileText; ///< FILE, which may be a pipe, as it was read in the beginning
    std::string keep;     ///< DIR, absolute
    std::string name;     ///< of this run's folder in it
    RunRecord record;     ///< of this run
    RunRecord note;       ///< what was found under way
    bool hasNote = false;
    int hardware = -1;      ///< of the board; -1 if it has none
    std::string wayBack;    ///< the file to return with
    bool isLowered = false; ///< it asks for older hardware than the backup
    bool hasWritten = false;
    RailStates statesAfter;
    std::string serialText; ///< of the chip, for people
    std::string locationText;

    /// The run's folder, which is the current one from open() on: its files go by their names.
    std::string folder() const { return keep + "/" + name; }
    std::string notePath() const { return keep + "/" + NOTE_NAME; }
    /// pmupgrade with these words, as it can be typed to go on with this DIR.
    std::string own(const Words& words) const;
    /// FILE as a word of such a command; its copy, if it can't be read a second time.
    std::string fileWord() const;
    /// The run's number, by which --return knows it.
    std::string runWord() const;

    Outcome refuse(const std::string& why) const;

    /// Runs a program until it ends with 0, up to so many times.
    Ended repeat(const std::string& title, const Words& command, int times,
                 unsigned int pauseUs = 0);

    // What leaves the chip as it is.

    /// The SHA-256 of a file; empty, told, if it can't be had.
    std::string hashOf(const std::string& file);
    std::optional<FileFacts> factsOf(const std::string& file);
    std::string askChip();
    /// Finds the board's hardware version.
    std::string findHardware();
    /// Reads what the chip holds into backup.hex, and proves it.
    std::string backUp();
    /// Finds the file to return with: the backup, or one made from it that the board accepts.
    std::string makeWayBack(const std::string& backup);
    /// Looks at the supplies, so many times if that can't be told. Empty if it never could.
    std::optional<SupplyStates> look(const std::string& title, int times, const Words& files = {});
    std::string showDifference(const std::string& from, const std::string& to);

    // What writes.

    /// Notes what is under way, and lets the signals wait that end programs.
    std::string begin(const RunRecord& underWay);
    /// Writes a file to the working registers and proves it.
    std::string write(const std::string& file);
    /// Lets the supplies settle and looks for what was not there before; `spared` judge nothing.
    std::string judgeSupplies(const RailStates& before, const std::set<int>& spared);
    /// The same after the store, when the chip holds the file anyway: that it can't be told how the
    /// supplies are is no failure then, but `isUnknown`.
    std::string judgeStored(const RailStates& before, const std::set<int>& spared, bool& isUnknown);
    /// Stores what was written, and proves it.
    std::string store(const std::string& file);
    std::string waitForChip();

    /// Opens DIR, finds a note there or in the default DIR, and makes the run's folder.
    std::string open();
    /// Ends the run: record, note and report.
    void finish(const Outcome& outcome);
    /// Tells what a return does not bring back.
    void tellNotReturned(bool hasStored);

private:
    std::string reportText(const Outcome& outcome) const;

    std::string m_fileWord;
    std::string m_keepWord;
};

/// What is worse than before, in words; the rails that are `spared` judge nothing.
std::vector<std::string> newTroubles(const RailStates& before, const RailStates& after,
                                     const std::set<int>& spared);

Outcome upgrade(Run& run);
Outcome goBack(Run& run);
