#include "pageSettings.h"

#include <algorithm>

using catalogue::Format;
using catalogue::Kind;
using catalogue::Row;

namespace {

bool isPermitted(const Entry& entry, std::uint32_t access, int pageBeforeTheFirst)
{
    const int page = entry.page == NO_PAGE ? pageBeforeTheFirst : entry.page;
    return entry.row != nullptr && catalogue::isPage(page)
           && (accessOn(*entry.row, page) & access) != 0;
}

bool isOwnSetting(const Row& row, int page)
{
    constexpr std::uint32_t BOTH = ACCESS_READ | ACCESS_WRITE;
    return row.kind == Kind::SETTING && row.format != Format::TEXT && row.format != Format::VERSION
           && (accessOn(row, page) & BOTH) == BOTH && isShared(row) == (page == Command::ALL_PAGES);
}

} // namespace

bool isWritten(const Entry& entry)
{
    return isPermitted(entry, ACCESS_WRITE, 0) && entry.row->kind != Kind::ACTION;
}

bool isAccessible(const Entry& entry)
{
    return isWritten(entry) && isPermitted(entry, ACCESS_READ, Command::ALL_PAGES);
}

std::vector<const Row*> settingsOf(int page)
{
    std::vector<const Row*> settings;
    for (const Row& row : catalogue::ROWS) {
        if (isOwnSetting(row, page)) {
            settings.push_back(&row);
        }
    }
    return settings;
}

std::map<int, PageSettings> findSettings(const PmFile& file)
{
    std::map<int, PageSettings> pages;
    for (const Entry& entry : file.entries) {
        const int page = registerPage(entry);
        if (isAccessible(entry) && isOwnSetting(*entry.row, page)) {
            pages[page][entry.code] = &entry;
        }
    }
    return pages;
}

bool isUnused(int page, const PageSettings& settings)
{
    const auto isFactory = [&](const Row* row) {
        const auto found = settings.find(row->code);
        return found == settings.end() ? row->code == MfrChannelNominal::CODE
                                       : isFactoryValue(*found->second);
    };
    return page != Command::ALL_PAGES && std::ranges::all_of(settingsOf(page), isFactory);
}
