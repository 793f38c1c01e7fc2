// Complaints about what a file sets of channels and sensors as a whole: their limits.
#include <algorithm>
#include <map>

#include "complaints.h"

using catalogue::Kind;

namespace {

/// The settings of one page, the last of each register.
using PageSettings = std::map<unsigned int, const Entry*>;

std::map<int, PageSettings> findSettings(const PmFile& file)
{
    std::map<int, PageSettings> pages;
    for (const Entry& entry : file.entries) {
        const int page = registerPage(entry);
        if (entry.isValue() && entry.row->kind == Kind::SETTING && isPage(page)
            && page != Command::ALL_PAGES) {
            pages[page][entry.code] = &entry;
        }
    }
    return pages;
}

bool isUsed(const PageSettings& settings)
{
    return !std::all_of(settings.begin(), settings.end(),
                        [](const auto& setting) { return isFactoryValue(*setting.second); });
}

/// Each value is below the next of its row that is there.
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
                if (code == Page::CODE || found == settings.end()) { // a row is filled up with 0
                    continue;
                }
                if (code == MfrChannelNominal::CODE && isFactoryValue(*found->second)) {
                    continue; // not set: another complaint
                }
                const Entry* const entry = found->second;
                if (lower != nullptr && isUsed(settings)
                    && numberOf(*lower->row, lower->value())
                           >= numberOf(*entry->row, entry->value())) {
                    report.add(std::max(lower->line, entry->line),
                               commandName(*lower) + " (" + valueOf(*lower) + ") must be below "
                                   + commandName(*entry) + " (" + valueOf(*entry) + ") of "
                                   + pageName(page));
                }
                lower = entry;
            }
        }
    }
}

void noLimit(const PmFile& file, Report& report)
{
    for (const auto& [page, settings] : findSettings(file)) {
        for (const std::uint8_t code : {VoutOVFaultLimit::CODE, VoutOVWarnLimit::CODE}) {
            const auto found = settings.find(code);
            if (found != settings.end() && isUsed(settings) && isFactoryValue(*found->second)) {
                report.add(found->second->line,
                           what(*found->second) + " is never reached: " + valueOf(*found->second)
                               + " is its value for never");
            }
        }
    }
}

void noNominal(const PmFile& file, Report& report)
{
    for (const auto& [page, settings] : findSettings(file)) {
        const auto found = settings.find(MfrChannelNominal::CODE);
        if (found != settings.end() && isUsed(settings) && isFactoryValue(*found->second)) {
            report.add(found->second->line,
                       what(*found->second) + " is 0 V, though the channel is used");
        }
    }
}

constexpr Complaint COMPLAINTS[] = {
    {"limit-order", false, Needs::ENTRIES, limitOrder},
    {"no-limit", false, Needs::ENTRIES, noLimit},
    {"no-nominal", false, Needs::ENTRIES, noNominal},
};

} // namespace

const std::span<const Complaint> SETTING_COMPLAINTS = COMPLAINTS;
