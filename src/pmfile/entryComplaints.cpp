// Complaints about entries, alone or in relation to others: registers, pages, versions.
#include <algorithm>
#include <unordered_map>
#include <utility>

#include "complaints.h"
#include "pageSettings.h"
#include "text.h"

using catalogue::Format;
using catalogue::Kind;

namespace {

void brokenEntry(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (!entry.isWhole) {
            report.add(entry.line, formatted("the entry at byte %zu %s", entry.offset,
                                             file.faultOf(entry).c_str()));
        }
    }
}

void unknownCommand(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (entry.row == nullptr && entry.isWhole) {
            report.add(entry.line,
                       formatted("no register has the command code %02X: the entry is left out",
                                 entry.code));
        }
    }
}

void surplusData(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (entry.row != nullptr && entry.data.size() > entry.row->size) {
            report.add(entry.line,
                       formatted("%s has %zu data bytes, but the register has %d",
                                 entry.row->name.text, entry.data.size(), entry.row->size));
        }
    }
}

void noSuchPage(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (entry.selectsPage() && entry.isValue() && !catalogue::isPage(entry.page)) {
            report.add(entry.line, formatted("the chip has no page %d", entry.page));
        }
    }
}

void access(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (!entry.selectsPage() && entry.isValue() && !isAccessible(entry)) {
            report.add(entry.line, formatted("%s can't be %s%s%s", entry.row->name.text,
                                             isWritten(entry) ? "read back" : "written",
                                             entry.page == NO_PAGE ? " " : " on ",
                                             placeName(entry.page).c_str()));
        }
    }
}

void noSetting(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (!entry.selectsPage() && entry.isValue() && isAccessible(entry)
            && entry.row->kind != Kind::SETTING) {
            report.add(entry.line,
                       formatted("%s is not a setting: the chip does not keep it in flash",
                                 registerName(entry).c_str()));
        }
    }
}

/// The values that a setting's unit can express, in words; empty if it can express this one, or if
/// the setting has no unit in which a word can be wrong.
std::string expressibleInstead(const Entry& entry)
{
    const int number = numberOf(*entry.row, entry.value());
    switch (entry.row->format) {
    case Format::VOLTS:
    case Format::TIME:
        return number >= 0 ? ""
                           : valueOfNumber(*entry.row, 0) + " to "
                                 + valueOfNumber(*entry.row, HIGHEST_WORD);
    case Format::RATIO:
        return number > 0 ? "" : "a ratio above 0 and up to 1";
    default:
        return "";
    }
}

void outOfRange(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        const bool isSetting = entry.isValue() && entry.row->kind == Kind::SETTING;
        const std::string instead = isSetting ? expressibleInstead(entry) : "";
        if (!instead.empty()) {
            report.add(entry.line,
                       formatted("%s is set to %s, which its unit can't express: write %s",
                                 registerName(entry).c_str(), valueOf(entry).c_str(),
                                 instead.c_str()));
        }
    }
}

/// The entries that set a register again, each with the earlier one.
std::vector<std::pair<const Entry*, const Entry*>> findRepetitions(const PmFile& file)
{
    std::unordered_map<unsigned int, const Entry*> seen;
    std::vector<std::pair<const Entry*, const Entry*>> found;
    for (const Entry& entry : file.entries) {
        if (!entry.isValue() || entry.selectsPage()) {
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
            report.add(entry->line, formatted("%s is set to %s, but in line %u to %s",
                                              registerName(*entry).c_str(), valueOf(*entry).c_str(),
                                              before->line, valueOf(*before).c_str()));
        }
    }
}

void repetition(const PmFile& file, Report& report)
{
    for (const auto& [before, entry] : findRepetitions(file)) {
        if (std::ranges::equal(before->value(), entry->value())) {
            report.add(entry->line, formatted("%s is set to the same value as in line %u",
                                              registerName(*entry).c_str(), before->line));
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
        report.add(lastLine(file), "there is no version record (MFR_DATE): the settings have "
                                   "version 0.0 and suit every board");
    }
}

void severalVersions(const PmFile& file, Report& report)
{
    const auto versions = findVersions(file);
    for (std::size_t i = 1; i < versions.size(); ++i) {
        report.add(versions[i]->line, "there is more than one version record; the last one counts");
    }
}

void versionLast(const PmFile& file, Report& report)
{
    const auto versions = findVersions(file);
    if (!versions.empty() && versions.back() != &file.entries.back()) {
        report.add(versions.back()->line,
                   "MFR_DATE is not the last entry: the chip reports the version before it "
                   "has everything else");
    }
}

void beforePage(const PmFile& file, Report& report)
{
    if (!file.entries.empty() && file.entries.front().page == NO_PAGE) {
        report.add(file.entries.front().line,
                   "there are entries before the first PAGE: nothing selects their page");
    }
}

void action(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (entry.row != nullptr && entry.row->kind == Kind::ACTION) {
            report.add(entry.line,
                       formatted("%s is an action and is ignored", entry.row->name.text));
        }
    }
}

void identity(const PmFile& file, Report& report)
{
    for (const Entry& entry : file.entries) {
        if (isIdentity(entry) && entry.isValue()) {
            report.add(
                entry.line,
                formatted(
                    "%s is set to %s, which every board would get that the file is written to: "
                    "leave it out unless the file is for a single board",
                    registerName(entry).c_str(), valueOf(entry).c_str()));
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
    {"out-of-range", true, Needs::RECORDS, outOfRange},
    {"conflict", true, Needs::ENTRIES, conflict},
    {"repetition", false, Needs::ENTRIES, repetition},
    {"no-version", false, Needs::ENTRIES, noVersion},
    {"several-versions", false, Needs::ENTRIES, severalVersions},
    {"version-last", false, Needs::ENTRIES, versionLast},
    {"before-page", false, Needs::RECORDS, beforePage},
    {"action", false, Needs::RECORDS, action},
    {"identity", false, Needs::RECORDS, identity},
};

} // namespace

const std::span<const Complaint> ENTRY_COMPLAINTS = COMPLAINTS;
