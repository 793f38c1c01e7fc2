#include "pages.h"

#include "text.h"

std::string pageName(int page)
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

std::string placeName(int page)
{
    return (page == Command::ALL_PAGES ? "the " : "") + pageName(page);
}
