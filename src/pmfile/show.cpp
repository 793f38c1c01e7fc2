#include "show.h"

#include <algorithm>
#include <string>

#include "fileSummary.h"
#include "loadFile.h"
#include "messages.h"
#include "pmFile.h"
#include "showJson.h"
#include "text.h"
#include "values.h"

using catalogue::Format;

namespace {

void showEntry(const Entry& entry)
{
    const std::string index = entry.index < 0 ? "-" : std::to_string(entry.index);
    const std::string value =
        entry.row == nullptr || entry.selectsPage() ? "" : spokenValue(*entry.row, entry.value());
    std::string bytes = hexBytes(entry.data);
    std::erase(bytes, ' ');
    std::string row = formatted("%5s  %02X  ", index.c_str(), entry.code) + commandName(entry);
    const auto column = [&row](std::size_t position, const std::string& text) {
        row.resize(text.empty() ? row.size() : std::max(row.size() + 1, position), ' ');
        row += text;
    };
    column(35, bytes);
    column(53, value);
    column(66, joined(marksOf(entry)));
    print(row + "\n");
}

std::size_t count(const Summary& summary, bool (*belongs)(std::uint8_t page))
{
    return static_cast<std::size_t>(std::ranges::count_if(summary.unused, [&](const auto& page) {
        return belongs(static_cast<std::uint8_t>(page.first));
    }));
}

std::ptrdiff_t countUnused(const Summary& summary)
{
    return std::ranges::count_if(summary.unused, [](const auto& page) { return page.second; });
}

std::string totals(const PmFile& file, const Summary& summary)
{
    const std::size_t channels = count(summary, Command::isChannelPage);
    const std::size_t sensors = count(summary, Command::isTemperaturePage);
    return formatted("%s in %s, %s: %s and %s, %td of them unused; %zu written, %zu not\n",
                     counted(file.entries.size(), "entry", "entries").c_str(),
                     counted(file.records.size(), "record", "records").c_str(),
                     counted(file.bytes.size(), "byte", "bytes").c_str(),
                     counted(channels, "channel", "channels").c_str(),
                     counted(sensors, "sensor", "sensors").c_str(), countUnused(summary),
                     summary.written, file.entries.size() - summary.written);
}

/// The line above the entries of a page.
std::string pageLine(const Summary& summary, int page)
{
    const std::string number = page == NO_PAGE ? "" : formatted("page %d: ", page);
    return "\n" + number + pageName(page) + (isUnused(summary, page) ? ", unused" : "") + "\n";
}

void showText(const PmFile& file)
{
    const Summary summary = summarise(file);
    const Entry* const version = findVersion(file);
    const std::string versionInWords =
        version == nullptr ? "no version record" : spokenValue(*version->row, version->value());
    print(printable(file.name) + ": " + versionInWords + "\n");
    // A page is shown where it is selected; there may be entries before the first one, too.
    const Entry* before = nullptr;
    for (const Entry& entry : file.entries) {
        if (before == nullptr || entry.page != before->page || entry.selectsPage()) {
            print(pageLine(summary, entry.page));
        }
        showEntry(entry);
        before = &entry;
    }
    const bool hasTimes = std::ranges::any_of(file.entries, [](const Entry& entry) {
        return entry.row != nullptr && entry.row->format == Format::TIME;
    });
    print(hasTimes ? "\nTimes count in steps of 0.2 ms, which is known from related chips only.\n"
                   : "");
    print("\n" + totals(file, summary));
}

} // namespace

int show(const std::string& path, bool asJson)
{
    const auto file = loadOrTell(path);
    if (file == nullptr) {
        return STATUS_TROUBLE;
    }
    if (asJson) {
        showJson(*file);
    } else {
        showText(*file);
    }
    return finishOutput(STATUS_GOOD);
}
