#include "readChip.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "max34460.h"
#include "messages.h"
#include "pmFile.h"
#include "pmMutexLock.h"
#include "textFile.h"

using catalogue::Kind;
using catalogue::Row;

namespace {

constexpr int BUS = 0;

/// MFR_ID of the chip's maker.
constexpr std::uint8_t MAKER = 0x4D;

/// MFR_MODEL of the one model that does not give MFR_CHANNEL_NOMINAL back.
constexpr std::uint8_t MODEL_WITHOUT_NOMINAL = 0x57;

/// How often a page is read until it stayed selected, and a register until it reads twice alike.
constexpr int PAGE_ATTEMPTS = 3;
constexpr int READINGS = 3;

using Bytes = std::vector<std::uint8_t>;

/// The settings to read on one page, in their order.
struct PagePlan {
    std::uint8_t page;
    std::vector<const Row*> settings;
};

/// The chip, opened and identified.
class Chip : public Max34460 {
public:
    Chip() : Max34460("pmfile", BUS, Command::CHIP_ADDRESS) {}

    bool isMakers() const { return m_mfrId.getByte() == MAKER; }
    bool givesNominal() const { return m_mfrModel.getByte() != MODEL_WITHOUT_NOMINAL; }

    /// Appends the page's entries to `bytes`. False, with a message, if they can't be relied on.
    bool readPage(const PagePlan& plan, Bytes& bytes) const;

private:
    bool isSelected(std::uint8_t page, bool& selected) const;
    bool readSettings(const PagePlan& plan, Bytes& bytes) const;
    bool readSetting(const Row& row, std::uint8_t page, Bytes& value) const;
};

// Whether the page is selected now. False, with a message, if that can't be read.
bool Chip::isSelected(std::uint8_t page, bool& selected) const
{
    Page selection;
    if (!selection.read(m_fd, page)) {
        tell("PAGE can't be read on " + pageName(page) + "; nothing was written");
        return false;
    }
    selected = selection.getByte() == page;
    return true;
}

bool Chip::readPage(const PagePlan& plan, Bytes& bytes) const
{
    for (int attempt = 0; attempt < PAGE_ATTEMPTS; ++attempt) {
        Bytes found;
        bool selected = false;
        Page selection;
        if (!selection.write(m_fd, plan.page)) {
            tell(pageName(plan.page) + " can't be selected; nothing was written");
            return false;
        }
        if (!isSelected(plan.page, selected)) {
            return false;
        }
        if (!selected) {
            continue;
        }
        if (!readSettings(plan, found) || !isSelected(plan.page, selected)) {
            return false;
        }
        if (selected) {
            bytes.insert(bytes.end(), found.begin(), found.end());
            return true;
        }
    }
    tell(pageName(plan.page)
         + " does not stay selected: the chip is write-protected, or another program uses it "
           "without the lock; nothing was written");
    return false;
}

// The entries of the page, its selection first.
bool Chip::readSettings(const PagePlan& plan, Bytes& bytes) const
{
    bytes = {1, Page::CODE, plan.page};
    for (const Row* row : plan.settings) {
        Bytes value;
        if (!readSetting(*row, plan.page, value)) {
            return false;
        }
        bytes.push_back(row->size);
        bytes.push_back(row->code);
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
    return true;
}

// Two readings in a row have to agree.
bool Chip::readSetting(const Row& row, std::uint8_t page, Bytes& value) const
{
    const std::unique_ptr<Command> command(Command::create(row.code));
    for (int reading = 0; reading < READINGS; ++reading) {
        if (!command->read(m_fd, page)) {
            tell(std::string(row.name.text) + " of " + pageName(page)
                 + " can't be read; nothing was written");
            return false;
        }
        Bytes now(row.size);
        command->getData(now.data());
        if (now == value) {
            return true;
        }
        value = now;
    }
    tell(std::string(row.name.text) + " of " + pageName(page)
         + " reads differently each time; nothing was written");
    return false;
}

bool isReadable(const Row& row, int page)
{
    return (accessOn(row, page) & ACCESS_READ) != 0;
}

/// Every setting of the chip: channels, sensors, then once what is common to the device. The
/// version record comes last.
std::vector<PagePlan> planAll()
{
    std::vector<PagePlan> plans;
    for (int page = 0; page <= Command::ALL_PAGES; ++page) {
        if (!isPage(page)) {
            continue;
        }
        PagePlan plan{static_cast<std::uint8_t>(page), {}};
        for (const Row& row : catalogue::ROWS) {
            const bool shared = row.deviceAccess != Command::NO;
            if (row.kind == Kind::SETTING && isReadable(row, page)
                && shared == (page == Command::ALL_PAGES)) {
                plan.settings.push_back(&row);
            }
        }
        std::stable_partition(plan.settings.begin(), plan.settings.end(),
                              [](const Row* row) { return row->code != MfrDate::CODE; });
        plans.push_back(plan);
    }
    return plans;
}

/// The settings that a file lists, each once, in its order. What it lists besides is told, and left
/// out.
std::vector<PagePlan> planLike(const PmFile& file)
{
    std::vector<PagePlan> plans;
    std::set<std::pair<int, unsigned int>> planned;
    for (const Entry& entry : file.entries) {
        // The start of a run leaves page 255 selected for what stands before the first PAGE.
        const int page = entry.page == NO_PAGE ? Command::ALL_PAGES : entry.page;
        const bool begins = plans.empty() || entry.isPage() || plans.back().page != page;
        if (begins && isPage(page)) {
            plans.push_back({static_cast<std::uint8_t>(page), {}});
        }
        if (entry.isPage() && isPage(page)) {
            continue;
        }
        if (entry.row == nullptr || entry.row->kind != Kind::SETTING || !isPage(page)
            || !isReadable(*entry.row, page)) {
            tell(file.name, entry.line,
                 commandName(entry) + " is left out: it is no setting, or not one of "
                     + pageName(page));
            continue;
        }
        if (planned.emplace(registerPage(entry), entry.code).second) {
            plans.back().settings.push_back(entry.row);
        }
    }
    return plans;
}

/// What is read while the lock is held. False, with a message, if it can't be had whole.
bool readSettings(std::vector<PagePlan>& plans, const ReadOptions& options, Bytes& bytes)
{
    bool held = false;
    const PmMutexLock lock("pmfile::read", held);
    if (!held) {
        tell("the lock of the power monitor can't be had; nothing was read");
        return false;
    }
    const Chip chip;
    if (!chip.isHwOk() || !chip.isMakers()) {
        tell(chip.isHwOk()
                 ? "the chip on /dev/i2c-0 is no MAX34460 (MFR_ID is not 0x4D); nothing was read"
                 : "the power monitor does not answer on /dev/i2c-0; nothing was read");
        return false;
    }
    const auto isNominal = [](const Row* row) { return row->code == MfrChannelNominal::CODE; };
    const bool lacksNominal =
        !chip.givesNominal() && std::ranges::any_of(plans, [&](const auto& plan) {
            return std::ranges::any_of(plan.settings, isNominal);
        });
    if (lacksNominal) {
        tell("this model does not give MFR_CHANNEL_NOMINAL back: it is left out");
    }
    for (PagePlan& plan : plans) {
        std::erase_if(plan.settings, [&](const Row* row) {
            return (lacksNominal && isNominal(row))
                   || (!options.identity && row->format == catalogue::Format::TEXT);
        });
        if (!chip.readPage(plan, bytes)) {
            return false;
        }
    }
    return true;
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
        const auto file = loadFile(*options.like);
        if (file == nullptr) {
            return STATUS_TROUBLE;
        }
        plans = planLike(*file);
        if (std::ranges::all_of(plans, [](const auto& plan) { return plan.settings.empty(); })) {
            tell(*options.like + ": expected settings that can be read, but has none");
            return STATUS_TROUBLE;
        }
    }
    Bytes bytes;
    if (!readSettings(plans, options, bytes)) {
        return STATUS_TROUBLE;
    }
    return writeOutput(options.output, pmDataFile::makeRecords(bytes.data(), bytes.size()),
                       existing);
}
