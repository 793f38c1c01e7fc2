#include "pages.h"

#include "text.h"

Names boardNames;

void knowNames(const Names& names)
{
    boardNames.insert(names.begin(), names.end());
}

std::string boardName(int page)
{
    const auto name = boardNames.find(page);
    return name == boardNames.end() ? "" : name->second;
}

std::string pageNumberName(int page)
{
    if (page == NO_PAGE) {
        return "before the first page";
    }
    if (page == Command::ALL_PAGES) {
        return "device";
    }
    const auto byte = static_cast<std::uint8_t>(page);
    if (Command::isChannelPage(byte)) {
        return formatted("channel %d", page);
    }
    return Command::isTemperaturePage(byte) ? formatted("sensor %d", sensorNumber(page))
                                            : formatted("page %d", page);
}

std::string pageName(int page)
{
    const std::string name = boardName(page);
    return pageNumberName(page) + (name.empty() ? "" : " ") + name;
}

std::string placeName(int page)
{
    return (page == Command::ALL_PAGES ? "the " : "") + pageName(page);
}
