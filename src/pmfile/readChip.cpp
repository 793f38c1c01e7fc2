#include "readChip.h"

#include <algorithm>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "chipLock.h"
#include "loadFile.h"
#include "messages.h"
#include "pmFile.h"
#include "provedChip.h"
#include "selectedPage.h"
#include "textFile.h"

using catalogue::Format;
using catalogue::Kind;
using catalogue::Row;

namespace {

using Bytes = ProvedChip::Bytes;

/// The settings to read on one page, in order.
struct PagePlan {
    std::uint8_t page;
    std::vector<const Row*> settings;
};

bool isReadable(const Row& row, int page)
{
    return (accessOn(row, page) & ACCESS_READ) != 0;
}

/// Every setting of the chip: channels, sensors, then those common to the device. The version
/// record comes last.
std::vector<PagePlan> planAll()
{
    std::vector<PagePlan> plans;
    for (int page = 0; page <= Command::ALL_PAGES; ++page) {
        if (!catalogue::isPage(page)) {
            continue;
        }
        PagePlan plan{static_cast<std::uint8_t>(page), {}};
        for (const Row& row : catalogue::ROWS) {
            if (row.kind == Kind::SETTING && isReadable(row, page)
                && isShared(row) == (page == Command::ALL_PAGES)) {
                plan.settings.push_back(&row);
            }
        }
        std::stable_partition(plan.settings.begin(), plan.settings.end(),
                              [](const Row* row) { return row->code != MfrDate::CODE; });
        plans.push_back(plan);
    }
    return plans;
}

/// The settings that a file lists, each once, in its order. Other entries are reported and left
/// out.
std::vector<PagePlan> planLike(const PmFile& file)
{
    std::vector<PagePlan> plans;
    std::set<std::pair<int, unsigned int>> planned;
    for (const Entry& entry : file.entries) {
        // The start of a run leaves page 255 selected for entries before the first PAGE.
        const int page = entry.page == NO_PAGE ? Command::ALL_PAGES : entry.page;
        if (entry.selectsPage() && catalogue::isPage(page)) {
            continue;
        }
        if (entry.row == nullptr || entry.row->kind != Kind::SETTING || !catalogue::isPage(page)
            || !isReadable(*entry.row, page)) {
            tell(file.name, entry.line,
                 commandName(entry) + " is left out: it is not a setting, or not one of "
                     + pageName(page));
            continue;
        }
        if (planned.emplace(registerPage(entry), entry.code).second) {
            if (plans.empty() || plans.back().page != page) {
                plans.push_back({static_cast<std::uint8_t>(page), {}});
            }
            plans.back().settings.push_back(entry.row);
        }
    }
    return plans;
}

/// Leaves out a kind of settings, and pages that are left without any.
template <typename Predicate> void leaveOut(std::vector<PagePlan>& plans, Predicate isLeftOut)
{
    for (PagePlan& plan : plans) {
        std::erase_if(plan.settings, isLeftOut);
    }
    std::erase_if(plans, [](const PagePlan& plan) { return plan.settings.empty(); });
}

/// Reads the entries of a page, its selection first.
bool readPage(const ProvedChip& chip, const PagePlan& plan, Bytes& bytes, std::string& error)
{
    bytes = {Page::SIZE, Page::CODE, plan.page};
    for (const Row* row : plan.settings) {
        Bytes value;
        if (!chip.readTwice(*row, plan.page, value, error)) {
            return false;
        }
        bytes.insert(bytes.end(), {row->size, row->code});
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
    return true;
}

/// Whether no setting has a bit that is 0, though a voltage or ratio is among them: no board has
/// such, but so answers a chip that is locked or without power.
bool isBlank(const Bytes& entries)
{
    bool hasUnit = false;
    for (std::size_t at = 0; at < entries.size(); at += 2U + entries[at]) {
        const Row& row = *catalogue::find(entries[at + 1]);
        const auto value = std::span(entries).subspan(at + 2, row.size);
        if (row.code == Page::CODE) {
            continue;
        }
        if (std::ranges::any_of(value, [](std::uint8_t byte) { return byte != 0xFF; })) {
            return false;
        }
        hasUnit = hasUnit || row.format == Format::VOLTS || row.format == Format::RATIO;
    }
    return hasUnit;
}

/// Reads what is planned while the lock is held. False, with a message, if it can't be had whole.
bool readSettings(int bus, std::vector<PagePlan> plans, Bytes& bytes)
{
    const auto fail = [](const std::string& why) {
        tell(why + "; nothing was written");
        return false;
    };
    ChipLock lock(tell);
    std::string error;
    if (!lock.isHeld()) {
        return fail(lock.error());
    }
    const auto chip =
        SelectedPage::find(bus, error) == nullptr ? nullptr : ProvedChip::open(bus, lock, error);
    if (chip == nullptr) {
        return fail(error);
    }
    const auto isNominal = [](const Row* row) { return row->code == MfrChannelNominal::CODE; };
    const bool lacksNominal =
        !chip->givesNominal() && std::ranges::any_of(plans, [&](const auto& plan) {
            return std::ranges::any_of(plan.settings, isNominal);
        });
    if (lacksNominal) {
        tell("MFR_CHANNEL_NOMINAL can't be read back on this model and is left out");
        leaveOut(plans, isNominal);
    }
    for (const PagePlan& plan : plans) {
        Bytes entries;
        const auto reader = [&](std::string& why) { return readPage(*chip, plan, entries, why); };
        if (!chip->visit(plan.page, reader, error)) {
            return fail(error);
        }
        bytes.insert(bytes.end(), entries.begin(), entries.end());
    }
    if (!lock.release()) {
        return fail(lock.error());
    }
    return (!bytes.empty() || fail("no setting is left to read"))
           && (!isBlank(bytes)
               || fail("every setting reads 0xFF, as from a chip that is locked or without power"));
}

} // namespace

int readChip(const ReadOptions& options)
{
    const Existing existing = options.force ? Existing::REPLACE : Existing::KEEP;
    std::vector<std::string> inputs;
    if (options.like) {
        inputs.push_back(*options.like);
    }
    if (!mayWrite(options.output, inputs, existing)) {
        return STATUS_TROUBLE;
    }
    std::vector<PagePlan> plans;
    if (!options.like) {
        plans = planAll();
    } else {
        const auto file = loadOrTell(*options.like);
        if (file == nullptr) {
            return STATUS_TROUBLE;
        }
        plans = planLike(*file);
    }
    if (!options.identity) {
        leaveOut(plans, [](const Row* row) { return row->format == Format::TEXT; });
    }
    if (plans.empty()) {
        tell(*options.like + ": contains no settings that can be read");
        return STATUS_TROUBLE;
    }
    Bytes bytes;
    if (!readSettings(options.bus, plans, bytes)) {
        return STATUS_TROUBLE;
    }
    return writeOutput(options.output, pmDataFile::makeRecords(bytes.data(), bytes.size()),
                       existing);
}
