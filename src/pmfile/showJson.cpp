#include "showJson.h"

#include "fileSummary.h"
#include "messages.h"
#include "pmFile.h"
#include "text.h"
#include "values.h"

using catalogue::Format;

namespace {

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

} // namespace

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
