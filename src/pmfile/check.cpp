#include "check.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "complaints.h"
#include "listFile.h"
#include "listLine.h"
#include "messages.h"
#include "text.h"
#include "textFile.h"

namespace {

/// All complaints, in the order in which messages list them.
std::vector<Complaint> listComplaints()
{
    std::vector<Complaint> complaints;
    for (const auto& some : {RECORD_COMPLAINTS, ENTRY_COMPLAINTS, SETTING_COMPLAINTS}) {
        complaints.insert(complaints.end(), some.begin(), some.end());
    }
    return complaints;
}

Needs soundness(const PmFile& file, bool isComplete)
{
    const auto isBroken = [](const RecordLine& record) { return record.record.fault != nullptr; };
    if (std::any_of(file.records.begin(), file.records.end(), isBroken)) {
        return Needs::NOTHING;
    }
    const bool whole = std::all_of(file.entries.begin(), file.entries.end(),
                                   [](const Entry& entry) { return entry.isWhole; });
    return whole && isComplete ? Needs::ENTRIES : Needs::RECORDS;
}

/// Prints what was found, in the order of the lines. Returns the exit status.
int tellFindings(const std::string& path, const std::vector<Finding>& findings)
{
    int status = STATUS_GOOD;
    for (const Finding& finding : findings) {
        print(formatted("%s:%u: %s\n", printable(path).c_str(), finding.line,
                        finding.inWords().c_str()));
        status = std::max(status, finding.isError ? STATUS_TROUBLE : STATUS_DIFFERENT);
    }
    return status;
}

int checkFile(const std::string& path, std::string text, const Allowed& allowed)
{
    const PmFile file(path, std::move(text));
    std::string error;
    int status = STATUS_GOOD;
    if (!hasEntries(file, error)) {
        tell(error);
        status = STATUS_TROUBLE;
    }
    return std::max(status, tellFindings(path, findComplaints(file, allowed)));
}

int checkList(const std::string& path, const std::string& text, const Allowed& allowed)
{
    const ListFile made = readList(path, text, needsSection(allowed));
    knowNames(made.names);
    for (const auto& [line, mistake] : made.mistakes) {
        print(formatted("%s:%u: error: %s\n", printable(path).c_str(), line, mistake.c_str()));
    }
    if (made.file == nullptr) {
        if (!made.trouble.empty()) {
            tell(made.trouble);
        }
        return STATUS_TROUBLE;
    }
    const bool isRead = made.mistakes.empty();
    const int status = tellFindings(path, findComplaints(*made.file, allowed, isRead));
    return isRead ? status : STATUS_TROUBLE;
}

} // namespace

std::string Finding::inWords() const
{
    return formatted("%s: %s (%s)", isError ? "error" : "warning", text.c_str(),
                     std::string(name).c_str());
}

std::vector<Finding> findComplaints(const PmFile& file, const Allowed& allowed, bool isComplete)
{
    const auto allows = [&](std::string_view name) {
        return std::find(allowed.begin(), allowed.end(), name) != allowed.end();
    };
    const Needs sound = soundness(file, isComplete);
    std::vector<Finding> findings;
    for (const Complaint& complaint : listComplaints()) {
        if (complaint.needs <= sound && !allows("all") && !allows(complaint.name)) {
            Report report(complaint.name, complaint.isError, findings);
            complaint.find(file, report);
        }
    }
    std::ranges::stable_sort(findings, {}, &Finding::line);
    return findings;
}

bool areComplaints(const std::string& option, const Allowed& names)
{
    const std::vector<Complaint> complaints = listComplaints();
    const auto isComplaint = [&](const std::string& name) {
        return name == "all"
               || std::any_of(complaints.begin(), complaints.end(),
                              [&](const Complaint& one) { return one.name == name; });
    };
    const auto wrong = std::find_if_not(names.begin(), names.end(), isComplaint);
    if (wrong == names.end()) {
        return true;
    }
    std::string known;
    for (const Complaint& complaint : complaints) {
        known.append(complaint.name).append(", ");
    }
    tell("--" + option + " '" + *wrong + "': expected one of " + known + "or all");
    return false;
}

bool needsSection(const Allowed& allowed)
{
    return std::ranges::none_of(
        allowed, [](const std::string& name) { return name == "all" || name == "before-page"; });
}

Allowed without(const Allowed& allowed, const Allowed& denied)
{
    Allowed names;
    const bool isAll = std::ranges::find(allowed, "all") != allowed.end();
    for (const Complaint& complaint : listComplaints()) {
        const auto has = [&](const Allowed& some) {
            return std::ranges::find(some, complaint.name) != some.end();
        };
        if ((isAll || has(allowed)) && !has(denied)) {
            names.emplace_back(complaint.name);
        }
    }
    return names;
}

int check(const std::vector<std::string>& paths, const Allowed& allowed)
{
    int status = STATUS_GOOD;
    const Names given = boardNames;
    for (const std::string& path : paths) {
        boardNames = given; // those of one list are not another's
        std::string text;
        std::string error;
        if (!readText(path, text, error)) {
            tell(error);
            status = STATUS_TROUBLE;
            continue;
        }
        status = std::max(status, isList(text) ? checkList(path, text, allowed)
                                               : checkFile(path, std::move(text), allowed));
    }
    return finishOutput(status);
}
