// Complaints about what a file sets of a page as a whole: whether that is all, and whether limits
// make sense beside each other.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "complaints.h"
#include "pageSettings.h"
#include "text.h"

namespace {

/// "A", "A and B", "A, B and C".
std::string listed(const std::vector<std::string>& names)
{
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    }
    return text;
}

/// "channel 3, channels 9 to 11 and the device"; what has a name is listed by itself.
std::string placesOf(const std::vector<int>& pages)
{
    std::vector<std::string> places;
    std::size_t next = 0;
    for (std::size_t begin = 0; begin < pages.size(); begin = next) {
        // Between the last channel and the first sensor is a page that the chip does not have.
        for (next = begin + 1; next < pages.size() && pages[next] == pages[next - 1] + 1
                               && boardName(pages[begin]).empty()
                               && boardName(pages[next]).empty();) {
            ++next;
        }
        std::string place = placeName(pages[begin]);
        if (next - begin > 1) {
            const std::string last = pageName(pages[next - 1]);
            place.insert(place.find(' '), "s").append(" to" + last.substr(last.find(' ')));
        }
        places.push_back(place);
    }
    return listed(places);
}

/// Where a page begins, or else the first of its settings.
unsigned int firstLine(const PmFile& file, int page, const PageSettings& settings)
{
    const auto begins = [&](const Entry& entry) {
        return entry.selectsPage() && entry.page == page;
    };
    const auto isSetting = [&](const Entry& entry) {
        return registerPage(entry) == page && settings.contains(entry.code) && isAccessible(entry);
    };
    const auto selection = std::ranges::find_if(file.entries, begins);
    return selection != file.entries.end() ? selection->line
                                           : std::ranges::find_if(file.entries, isSetting)->line;
}

/// The names of settings that the page has and the file does not set.
std::vector<std::string> findMissing(int page, const PageSettings& settings)
{
    std::vector<std::string> missing;
    for (const catalogue::Row* row : settingsOf(page)) {
        if (!settings.contains(row->code)) {
            missing.emplace_back(row->name.text);
        }
    }
    return missing;
}

void partialPage(const PmFile& file, int page, const PageSettings& settings, Report& report)
{
    constexpr std::size_t MOST_NAMES = 3;
    std::vector<std::string> missing = findMissing(page, settings);
    const std::size_t all = settings.size() + missing.size();
    if (missing.size() > MOST_NAMES) {
        const std::string others = formatted("%zu more", missing.size() - MOST_NAMES);
        missing.resize(MOST_NAMES);
        missing.push_back(others);
    }
    report.add(
        firstLine(file, page, settings),
        formatted(
            "the file sets %zu of the %zu settings of %s: it lacks %s, for which the chip keeps "
            "its old values; set all of them",
            settings.size(), all, placeName(page).c_str(), listed(missing).c_str()));
}

void partial(const PmFile& file, Report& report)
{
    const auto pages = findSettings(file);
    const std::string nominal = catalogue::find(MfrChannelNominal::CODE)->name.text;
    const bool hasNominal = std::ranges::any_of(
        pages, [](const auto& page) { return page.second.contains(MfrChannelNominal::CODE); });
    bool hasChannel = false;
    std::vector<int> untouched;
    for (int page = 0; page <= Command::ALL_PAGES; ++page) {
        if (!catalogue::isPage(page)) {
            continue;
        }
        const auto found = pages.find(page);
        if (found == pages.end()) {
            untouched.push_back(page);
            continue;
        }
        hasChannel = hasChannel || Command::isChannelPage(static_cast<std::uint8_t>(page));
        const std::vector<std::string> missing = findMissing(page, found->second);
        const bool lacksNominalAlone = missing.size() == 1 && missing.front() == nominal;
        if (!missing.empty() && (hasNominal || !lacksNominalAlone)) {
            partialPage(file, page, found->second, report);
        }
    }
    if (!untouched.empty()) {
        report.add(lastLine(file),
                   formatted("the file sets nothing of %s: the chip keeps what it holds there",
                             placesOf(untouched).c_str()));
    }
    if (hasChannel && !hasNominal) {
        report.add(
            lastLine(file),
            formatted(
                "the file sets no channel's %s, which can't be read back on the model 0x57: set "
                "it, or the chip keeps its old values and no limit can be checked against it",
                nominal.c_str()));
    }
}

/// The number that a register is set to; 0 if it is not set.
int numberIn(const PageSettings& settings, std::uint8_t code)
{
    const auto found = settings.find(code);
    return found == settings.end() ? 0 : numberOf(*found->second->row, found->second->value());
}

/// Each value must be below the next of its row that is set.
constexpr std::uint8_t ASCENDING[][7] = {
    {VoutUVFaultLimit::CODE, VoutUVWarnLimit::CODE, VoutMarginLow::CODE, MfrChannelNominal::CODE,
     VoutMarginHigh::CODE, VoutOVWarnLimit::CODE, VoutOVFaultLimit::CODE},
    {PowerGoodOff::CODE, PowerGoodOn::CODE, MfrChannelNominal::CODE},
    {OTWarnLimit::CODE, OTFaultLimit::CODE},
};

void limitOrder(const PmFile& file, Report& report)
{
    for (const auto& [page, settings] : findSettings(file)) {
        for (const std::span<const std::uint8_t> row : ASCENDING) {
            const Entry* lower = nullptr;
            for (const std::uint8_t code : row) {
                const auto found = settings.find(code);
                if (code == Page::CODE || found == settings.end()) { // rows are padded with 0
                    continue;
                }
                if (code == MfrChannelNominal::CODE && isFactoryValue(*found->second)) {
                    continue; // not set: another complaint
                }
                const Entry* const entry = found->second;
                if (lower != nullptr && !isUnused(page, settings)
                    && numberOf(*lower->row, lower->value())
                           >= numberOf(*entry->row, entry->value())) {
                    report.add(std::max(lower->line, entry->line),
                               formatted("%s (%s) must be below %s (%s) of %s",
                                         lower->row->name.text, valueOf(*lower).c_str(),
                                         entry->row->name.text, valueOf(*entry).c_str(),
                                         pageName(page).c_str()));
                }
                lower = entry;
            }
        }
    }
}

/// The warning and fault limits of a channel that are set to something else than the factory's, and
/// that are voltages.
std::vector<const Entry*> findLimits(const PageSettings& settings)
{
    std::vector<const Entry*> limits;
    for (const std::uint8_t code : {VoutOVFaultLimit::CODE, VoutOVWarnLimit::CODE,
                                    VoutUVWarnLimit::CODE, VoutUVFaultLimit::CODE}) {
        const auto found = settings.find(code);
        if (found != settings.end() && !isFactoryValue(*found->second)
            && numberIn(settings, code) >= 0) {
            limits.push_back(found->second);
        }
    }
    return limits;
}

void limitWidth(const PmFile& file, Report& report)
{
    for (const auto& [page, settings] : findSettings(file)) {
        const int nominal = numberIn(settings, MfrChannelNominal::CODE);
        if (nominal <= 0) {
            continue;
        }
        // In steps: half of the nominal voltage, and a hundredth, rounded up, less one step.
        const int farthest = nominal / 2;
        const int nearest = (nominal + 99) / 100 - 1;
        for (const Entry* limit : findLimits(settings)) {
            const int distance = std::abs(numberOf(*limit->row, limit->value()) - nominal);
            if (distance <= farthest && distance >= nearest) {
                continue;
            }
            const bool isUpper =
                limit->code == VoutOVFaultLimit::CODE || limit->code == VoutOVWarnLimit::CODE;
            const int least = isUpper ? nominal + nearest : nominal - farthest;
            const int most = isUpper ? nominal + farthest : nominal - nearest;
            const auto volts = [&](int number) {
                return valueOfNumber(*limit->row, std::min(number, HIGHEST_WORD));
            };
            report.add(
                limit->line,
                formatted(
                    distance > farthest
                        ? "%s (%s) is farther than 50 %% from the nominal voltage (%s) and "
                          "protects nothing: write %s to %s"
                        : "%s (%s) is nearer than 1 %% to the nominal voltage (%s) and trips on "
                          "noise: write %s to %s",
                    registerName(*limit).c_str(), valueOf(*limit).c_str(), volts(nominal).c_str(),
                    volts(least).c_str(), volts(most).c_str()));
        }
    }
}

void unreachableLimit(const PmFile& file, Report& report)
{
    constexpr std::int64_t FULL_SCALE = 2048; // mV at the pin, the most in the chip's family
    for (const auto& [page, settings] : findSettings(file)) {
        const int ratio = numberIn(settings, VoutScaleMonitor::CODE);
        if (ratio <= 0) {
            continue;
        }
        for (const Entry* limit : findLimits(settings)) {
            const int number = numberOf(*limit->row, limit->value());
            // Each may have been rounded up, by half a step; doubled they stay whole numbers.
            const std::int64_t least =
                (2 * std::int64_t{number} - 1) * (2 * std::int64_t{ratio} - 1);
            if (least <= 4 * FULL_SCALE * HIGHEST_WORD) {
                continue;
            }
            const Entry& scale = *settings.at(VoutScaleMonitor::CODE);
            report.add(
                limit->line,
                formatted(
                    "%s (%s) times VOUT_SCALE_MONITOR (%s) is above %s, the largest full scale "
                    "known from related chips, and can never be measured: write a lower "
                    "limit or a smaller ratio",
                    registerName(*limit).c_str(), valueOf(*limit).c_str(), valueOf(scale).c_str(),
                    valueOfNumber(*limit->row, static_cast<int>(FULL_SCALE)).c_str()));
        }
    }
}

void noLimit(const PmFile& file, Report& report)
{
    for (const auto& [page, settings] : findSettings(file)) {
        for (const std::uint8_t code : {VoutOVFaultLimit::CODE, VoutOVWarnLimit::CODE}) {
            const auto found = settings.find(code);
            if (found != settings.end() && !isUnused(page, settings)
                && isFactoryValue(*found->second)) {
                report.add(found->second->line, formatted("%s is never reached: %s means never",
                                                          registerName(*found->second).c_str(),
                                                          valueOf(*found->second).c_str()));
            }
        }
    }
}

void noNominal(const PmFile& file, Report& report)
{
    for (const auto& [page, settings] : findSettings(file)) {
        const auto found = settings.find(MfrChannelNominal::CODE);
        if (found != settings.end() && !isUnused(page, settings)
            && isFactoryValue(*found->second)) {
            report.add(found->second->line, formatted("%s is 0 V, though the channel is used",
                                                      registerName(*found->second).c_str()));
        }
    }
}

constexpr Complaint COMPLAINTS[] = {
    {"partial", false, Needs::ENTRIES, partial},
    {"limit-order", false, Needs::ENTRIES, limitOrder},
    {"limit-width", false, Needs::ENTRIES, limitWidth},
    {"unreachable-limit", false, Needs::ENTRIES, unreachableLimit},
    {"no-limit", false, Needs::ENTRIES, noLimit},
    {"no-nominal", false, Needs::ENTRIES, noNominal},
};

} // namespace

const std::span<const Complaint> SETTING_COMPLAINTS = COMPLAINTS;
