#include "entry.h"

#include <algorithm>

#include "text.h"
#include "values.h"

int registerPage(const Entry& entry)
{
    return entry.row != nullptr && isShared(*entry.row) ? Command::ALL_PAGES : entry.page;
}

std::string commandName(const Entry& entry)
{
    if (entry.row != nullptr) {
        return entry.row->name.text;
    }
    return formatted("command %02X", entry.code);
}

std::string registerName(const Entry& entry)
{
    const int page = registerPage(entry);
    return commandName(entry) + (page == NO_PAGE ? " " : " of ") + placeName(page);
}

bool isFactoryValue(const Entry& entry)
{
    return std::ranges::equal(entry.value(), factoryValue(*entry.row));
}

bool isIdentity(const Entry& entry)
{
    return entry.row != nullptr && entry.row->format == catalogue::Format::TEXT;
}
