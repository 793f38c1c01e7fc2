#include "list.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <vector>

#include "listFile.h"
#include "listLine.h"
#include "loadFile.h"
#include "messages.h"
#include "text.h"
#include "textFile.h"
#include "values.h"

namespace {

/// Whether a section line expresses the entry completely.
bool isSection(const Entry& entry)
{
    return entry.selectsPage() && entry.data.size() == 1;
}

/// The section line of a page: "[channel 3 CORE_2V5]".
std::string sectionLine(int page)
{
    return formatted("[%s]\n", pageName(page).c_str());
}

/// The line of any other entry: a register's name and its value.
std::string listLine(const Entry& entry)
{
    constexpr std::size_t VALUE_COLUMN = 24;
    if (entry.row == nullptr || entry.selectsPage() || entry.data.size() != entry.row->size) {
        return formatted("%s %02X", RAW, entry.code) + (entry.data.empty() ? "" : " ")
               + hexBytes(entry.data) + "\n";
    }
    std::string line = commandName(entry);
    if (entry.row->size > 0) {
        line.resize(std::max(line.size() + 1, VALUE_COLUMN), ' ');
    }
    return line + valueText(*entry.row, entry.value()) + "\n";
}

/// The options that allow these findings.
std::string optionsAgainst(const std::vector<Finding>& findings)
{
    std::set<std::string_view> names;
    std::string options;
    for (const Finding& finding : findings) {
        if (names.insert(finding.name).second) {
            options.append(" --allow ").append(finding.name);
        }
    }
    return options;
}

/// Makes the text of a file from a list. False, with messages, if it has mistakes or findings.
bool makeText(const std::string& listPath, const Allowed& allowed, std::string& text)
{
    std::string list;
    std::string error;
    if (!readText(listPath, list, error)) {
        tell(error);
        return false;
    }
    const ListFile made = readList(listPath, list, needsSection(allowed));
    knowNames(made.names);
    ListComplaints complaints = made.mistakes;
    const bool isRead = complaints.empty();
    std::vector<Finding> findings;
    if (made.file != nullptr) {
        text = made.file->text;
        findings = findComplaints(*made.file, allowed, isRead);
    }
    for (const Finding& finding : findings) {
        complaints.emplace(finding.line, finding.inWords());
    }
    for (const auto& [line, complaint] : complaints) {
        tell(listPath, line, complaint);
    }
    if (!made.trouble.empty()) {
        tell(made.trouble);
    } else if (isRead && !findings.empty()) {
        tell("add" + optionsAgainst(findings) + " to make the file anyway");
    }
    return !text.empty() && complaints.empty();
}

} // namespace

int source(const std::string& path)
{
    const auto file = loadOrTell(path);
    if (file == nullptr) {
        return STATUS_TROUBLE;
    }
    bool first = true;
    for (const Entry& entry : file->entries) {
        if (isSection(entry)) {
            print((first ? "" : "\n") + sectionLine(entry.page));
        } else {
            print(listLine(entry));
        }
        first = false;
    }
    return finishOutput(STATUS_GOOD);
}

int make(const std::string& listPath, const std::string& outputPath, const Allowed& allowed)
{
    std::string text;
    if (mayWrite(outputPath, {listPath}, Existing::REPLACE) && makeText(listPath, allowed, text)
        && writeOutput(outputPath, text, Existing::REPLACE) == STATUS_GOOD) {
        return STATUS_GOOD;
    }
    tellUnwritten(outputPath);
    return STATUS_TROUBLE;
}
