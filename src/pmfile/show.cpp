#include "show.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <vector>

#include "messages.h"
#include "pageSettings.h"
#include "pmFile.h"
#include "text.h"
#include "values.h"

using catalogue::Format;
using catalogue::Kind;

namespace {

/// Whether a write takes effect on the supplies at once.
bool actsAtOnce(const Entry& entry)
{
    return entry.code == VoutScaleMonitor::CODE || entry.code == OnOffConfig::CODE
           || entry.code == MfrMode::CODE || entry.code == Operation::CODE;
}

/// Remarks on an entry beside its value.
std::vector<std::string> marksOf(const Entry& entry)
{
    if (entry.row == nullptr) {
        return {"unknown, left out"};
    }
    if (entry.row->kind == Kind::ACTION) {
        return {"ignored"};
    }
    std::vector<std::string> marks;
    if (!isWritten(entry)) {
        marks.emplace_back("can't be written");
    } else if (!entry.selectsPage() && entry.row->kind != Kind::SETTING) {
        marks.emplace_back("not a setting");
    }
    if (isIdentity(entry)) {
        marks.emplace_back("identity");
    }
    if (actsAtOnce(entry)) {
        marks.emplace_back("acts at once");
    }
    return marks;
}

/// Numbers of a file, and the pages for which it has registers.
struct Summary {
    std::size_t written = 0;
    std::map<int, bool> unused; ///< by page
};

Summary summarise(const PmFile& file)
{
    Summary summary;
    const auto settings = findSettings(file);
    for (const Entry& entry : file.entries) {
        summary.written += isWritten(entry) ? 1 : 0;
        if (entry.isValue() && !entry.selectsPage() && catalogue::isPage(entry.page)
            && !summary.unused.contains(entry.page)) {
            const auto found = settings.find(entry.page);
            summary.unused[entry.page] =
                found != settings.end() && isUnused(entry.page, found->second);
        }
    }
    return summary;
}

bool isUnused(const Summary& summary, int page)
{
    const auto found = summary.unused.find(page);
    return found != summary.unused.end() && found->second;
}

const Entry* findVersion(const PmFile& file)
{
    const Entry* version = nullptr;
    for (const Entry& entry : file.entries) {
        version = entry.code == MfrDate::CODE ? &entry : version;
    }
    return version;
}

void showEntry(const Entry& entry)
{
    const std::string index = entry.index < 0 ? "-" : std::to_string(entry.index);
    const std::string value =
        entry.row == nullptr || entry.selectsPage() ? "" : spokenValue(*entry.row, entry.value());
    std::string marks;
    for (const std::string& mark : marksOf(entry)) {
        marks += (marks.empty() ? "" : ", ") + mark;
    }
    std::string bytes = hexBytes(entry.data);
    std::erase(bytes, ' ');
    std::string row = formatted("%5s  %02X  ", index.c_str(), entry.code) + commandName(entry);
    const auto column = [&row](std::size_t position, const std::string& text) {
        row.resize(text.empty() ? row.size() : std::max(row.size() + 1, position), ' ');
        row += text;
    };
    column(35, bytes);
    column(53, value);
    column(66, marks);
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

std::string counted(std::size_t number, const char* one, const char* several)
{
    return formatted("%zu %s", number, number == 1 ? one : several);
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

/// The number of a value in its unit, or null.
std::string numberOrNull(const Entry& entry)
{
    const Format format = entry.row == nullptr ? Format::NONE : entry.row->format;
    if (format != Format::VOLTS && format != Format::CELSIUS && format != Format::TIME
        && format != Format::RATIO && format != Format::COUNT) {
        return "null";
    }
    const std::string text = valueText(*entry.row, entry.value());
    return text.substr(0, 2) == "0x" ? "null" : text.substr(0, text.find(' '));
}

std::string jsonOf(const Entry& entry)
{
    std::string marks;
    for (const std::string& mark : marksOf(entry)) {
        marks += (marks.empty() ? "" : ", ") + jsonString(mark);
    }
    const auto orNull = [](bool is, const std::string& text) { return is ? text : "null"; };
    const bool known = entry.row != nullptr;
    const std::string value = known ? valueText(*entry.row, entry.value()) : "";
    return formatted(R"({"line": %u, "index": %s, "page": %s, "place": %s, "code": %u, )"
                     R"("name": %s, "bytes": %s, "value": %s, "number": %s, "marks": [%s]})",
                     entry.line, orNull(known, std::to_string(entry.index)).c_str(),
                     orNull(entry.page != NO_PAGE, std::to_string(entry.page)).c_str(),
                     jsonString(pageNumberName(entry.page)).c_str(), entry.code,
                     orNull(known, jsonString(commandName(entry))).c_str(),
                     jsonString(hexBytes(entry.data)).c_str(),
                     orNull(known, jsonString(value)).c_str(), numberOrNull(entry).c_str(),
                     marks.c_str());
}

/// The names that were given, in the order of their pages; nothing if there are none.
std::string namesJson()
{
    std::string names;
    for (const auto& [page, name] : boardNames) {
        names +=
            formatted(R"(%s{"page": %d, "place": %s, "name": %s})", names.empty() ? "" : ", ", page,
                      jsonString(pageNumberName(page)).c_str(), jsonString(name).c_str());
    }
    return names.empty() ? "" : " \"names\": [" + names + "],\n";
}

void showJson(const PmFile& file)
{
    const Summary summary = summarise(file);
    const Entry* const version = findVersion(file);
    std::string numbers = "null";
    if (version != nullptr) {
        numbers = formatted(R"({"major": %d, "minor": %d, "minimumHardware": %d})",
                            version->data[1], version->data[0], version->data[2]);
    }
    std::string unused;
    for (const auto& [page, isFactory] : summary.unused) {
        if (isFactory) {
            unused += (unused.empty() ? "" : ", ") + std::to_string(page);
        }
    }
    print("{\"file\": " + jsonString(file.name) + ",\n \"version\": " + numbers
          + ",\n \"unusedPages\": [" + unused + "],\n" + namesJson() + " \"entries\": [");
    const char* separator = "\n  ";
    for (const Entry& entry : file.entries) {
        print(separator + jsonOf(entry));
        separator = ",\n  ";
    }
    print("]}\n");
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
