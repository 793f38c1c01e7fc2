// Complaints about entries, each by itself or beside the others: registers, pages, versions.
#include <algorithm>
#include <unordered_map>
#include <utility>

#include "complaints.h"

using catalogue::Kind;

namespace {

void brokenEntry(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (!entry.isWhole) {
            report.add(entry.line, "the entry at byte " + std::to_string(entry.offset) + " "
                                       + file.faultOf(entry));
        }
    }
}

void unknownCommand(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (entry.row == nullptr && entry.isWhole) {
            report.add(entry.line, "no register has the command code " + hex(entry.code, 2)
                                       + ": the entry is left out");
        }
    }
}

void surplusData(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (entry.row != nullptr && entry.data.size() > entry.row->size) {
            report.add(entry.line, commandName(entry) + " has " + std::to_string(entry.data.size())
                                       + " data bytes of " + std::to_string(entry.row->size));
        }
    }
}

void noSuchPage(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (entry.isPage() && entry.isValue() && !isPage(entry.page)) {
            report.add(entry.line, "the chip has no page " + std::to_string(entry.page));
        }
    }
}

bool isAllowed(const Entry& entry, std::uint32_t access, int page)
{
    return isPage(page) && (accessOn(*entry.row, page) & access) != 0;
}

/// Whether the entry can be written where it stands, and compared. What stands before the first
/// page is written by the rights of page 0 and compared by those of page 255.
bool isAccessible(const Entry& entry)
{
    const bool paged = entry.page != NO_PAGE;
    return isAllowed(entry, ACCESS_WRITE, paged ? entry.page : 0)
           && isAllowed(entry, ACCESS_READ, paged ? entry.page : Command::ALL_PAGES);
}

void access(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (!entry.isPage() && entry.isValue() && !isAccessible(entry)) {
            const int page = entry.page == NO_PAGE ? 0 : entry.page;
            const char* const lacking =
                isAllowed(entry, ACCESS_WRITE, page) ? "read back" : "written";
            report.add(entry.line, commandName(entry) + " can't be " + lacking
                                       + (entry.page == NO_PAGE ? " " : " on ")
                                       + pageName(entry.page));
        }
    }
}

void noSetting(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (!entry.isPage() && entry.isValue() && isAccessible(entry)
            && entry.row->kind != Kind::SETTING) {
            report.add(entry.line,
                       what(entry) + " is no setting: the chip does not keep it in flash");
        }
    }
}

/// The entries that set a register which one before them has set, with that one.
std::vector<std::pair<const Entry*, const Entry*>> findRepetitions(const PmFile& file)
{
    std::unordered_map<unsigned int, const Entry*> seen;
    std::vector<std::pair<const Entry*, const Entry*>> found;
    for (const Entry& entry : file.entries) {
        if (!entry.isValue() || entry.isPage()) {
            continue;
        }
        const Entry*& before =
            seen[static_cast<unsigned int>(registerPage(entry)) << 8 | entry.code];
        if (before != nullptr) {
            found.emplace_back(before, &entry);
        }
        before = &entry;
    }
    return found;
}

void conflict(const PmFile& file, Report& report)
{
    for (const auto& [before, entry] : findRepetitions(file)) {
        if (!std::ranges::equal(before->value(), entry->value())) {
            report.add(entry->line, what(*entry) + " is set to " + valueOf(*entry)
                                        + ", and by line " + std::to_string(before->line) + " to "
                                        + valueOf(*before));
        }
    }
}

void repetition(const PmFile& file, Report& report)
{
    for (const auto& [before, entry] : findRepetitions(file)) {
        if (std::ranges::equal(before->value(), entry->value())) {
            report.add(entry->line,
                       what(*entry) + " is set again, as by line " + std::to_string(before->line));
        }
    }
}

std::vector<const Entry*> findVersions(const PmFile& file)
{
    std::vector<const Entry*> versions;
    for (const Entry& entry : file.entries) {
        if (entry.code == MfrDate::CODE && entry.isValue()) {
            versions.push_back(&entry);
        }
    }
    return versions;
}

void noVersion(const PmFile& file, Report& report)
{
    if (findVersions(file).empty()) {
        report.add(
            lastLine(file),
            "no MFR_DATE, the version record: the settings have version 0.0 and suit every board");
    }
}

void severalVersions(const PmFile& file, Report& report)
{
    const auto versions = findVersions(file);
    for (std::size_t i = 1; i < versions.size(); ++i) {
        report.add(versions[i]->line, "another version record; the last one counts");
    }
}

void versionLast(const PmFile& file, Report& report)
{
    const auto versions = findVersions(file);
    if (!versions.empty() && versions.back() != &file.entries.back()) {
        report.add(versions.back()->line,
                   "MFR_DATE is not the last entry: the chip claims the version before it has "
                   "the rest");
    }
}

void beforePage(const PmFile& file, Report& report)
{
    if (!file.entries.empty() && file.entries.front().page == NO_PAGE) {
        report.add(file.entries.front().line,
                   "entries before the first PAGE: nothing selects a page for them");
    }
}

void action(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (entry.row != nullptr && entry.row->kind == Kind::ACTION) {
            report.add(entry.line, commandName(entry) + " is passed over");
        }
    }
}

constexpr Complaint COMPLAINTS[] = {
    {"broken-entry", true, Needs::RECORDS, brokenEntry},
    {"unknown-command", true, Needs::RECORDS, unknownCommand},
    {"surplus-data", true, Needs::RECORDS, surplusData},
    {"no-such-page", true, Needs::RECORDS, noSuchPage},
    {"access", true, Needs::RECORDS, access},
    {"no-setting", true, Needs::RECORDS, noSetting},
    {"conflict", true, Needs::ENTRIES, conflict},
    {"repetition", false, Needs::ENTRIES, repetition},
    {"no-version", false, Needs::ENTRIES, noVersion},
    {"several-versions", false, Needs::ENTRIES, severalVersions},
    {"version-last", false, Needs::ENTRIES, versionLast},
    {"before-page", false, Needs::RECORDS, beforePage},
    {"action", false, Needs::RECORDS, action},
};

} // namespace

const std::span<const Complaint> ENTRY_COMPLAINTS = COMPLAINTS;
