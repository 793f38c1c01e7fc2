#include "check.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "output.h"
#include "values.h"

using catalogue::Kind;

namespace {

/// Takes the findings of one complaint.
class Report {
public:
    Report(const char* name, bool isError, std::vector<Finding>& findings)
        : m_name(name),
          m_isError(isError),
          m_findings(findings)
    {
    }

    void add(unsigned int line, const std::string& text)
    {
        m_findings.push_back({line, m_isError, text + " (" + m_name + ")"});
    }

private:
    const char* m_name;
    bool m_isError;
    std::vector<Finding>& m_findings;
};

std::string hex(unsigned int number, int digits)
{
    char text[16];
    std::snprintf(text, sizeof(text), "%0*X", digits, number);
    return text;
}

/// "VOUT_OV_WARN_LIMIT of channel 3".
std::string what(const Entry& entry)
{
    return commandName(entry) + " of " + pageName(registerPage(entry));
}

std::string valueOf(const Entry& entry)
{
    return spokenValue(*entry.row, entry.value());
}

unsigned int lastLine(const PmFile& file)
{
    return file.records.empty() ? 1 : file.records.back().line;
}

// Complaints about records.

void brokenRecord(const PmFile& file, Report& report)
{
    for (const RecordLine& record : file.records) {
        if (record.record.fault != nullptr) {
            report.add(record.line, std::string("the line ") + record.record.fault);
        }
    }
}

void strayLine(const PmFile& file, Report& report)
{
    for (const RecordLine& stray : file.strays) {
        report.add(stray.line, "the line is too short for a record, and passed over");
    }
}

void recordMark(const PmFile& file, Report& report)
{
    for (const RecordLine& record : file.records) {
        if (record.text[0] != ':') {
            report.add(record.line, "the record begins with something other than a colon");
        }
    }
}

void checksum(const PmFile& file, Report& report)
{
    for (const RecordLine& record : file.records) {
        const unsigned int fitting = pmDataFile::checksumOf(record.text);
        if (record.record.fault == nullptr && record.record.checksum != fitting) {
            report.add(record.line, "the checksum is " + hex(record.record.checksum, 2) + ", and "
                                        + hex(fitting, 2) + " would fit the record");
        }
    }
}

void address(const PmFile& file, Report& report)
{
    unsigned int next = 0;
    for (const auto& [record, text, line] : file.records) {
        if (record.type != pmDataFile::DATA_RECORD) {
            continue;
        }
        if (record.address != next) {
            report.add(line, "the address is " + hex(record.address, 4) + ", and " + hex(next, 4)
                                 + " would continue the data");
        }
        next = record.address + record.byteCount;
    }
}

void recordType(const PmFile& file, Report& report)
{
    for (const auto& [record, text, line] : file.records) {
        if (record.type != pmDataFile::DATA_RECORD && record.byteCount > 0) {
            report.add(line, "data in a record of the type " + hex(record.type, 2)
                                 + " is taken as settings");
        }
    }
}

void endRecord(const PmFile& file, Report& report)
{
    const auto isEnd = [](const RecordLine& record) {
        return record.record.type == pmDataFile::END_RECORD;
    };
    const auto end = std::find_if(file.records.begin(), file.records.end(), isEnd);
    if (end == file.records.end()) {
        report.add(lastLine(file), "the file ends without an end record");
    } else if (std::next(end) != file.records.end()) {
        report.add(std::next(end)->line, "a record behind the end record, and its data is taken");
    }
}

void surplusText(const PmFile& file, Report& report)
{
    for (const RecordLine& record : file.records) {
        const std::string_view data = record.record.data;
        if (record.record.fault != nullptr) {
            continue;
        }
        const auto end = static_cast<std::size_t>(data.data() + data.size() - record.text.data())
                         + pmDataFile::DIGITS_PER_BYTE;
        if (record.text.find_first_not_of(" \t\r", end) != std::string_view::npos) {
            report.add(record.line, "text behind the record, and passed over");
        }
    }
}

// Complaints about entries.

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

// Complaints about the settings of a channel or sensor.

/// The settings of one page, the last of each register.
using PageSettings = std::map<unsigned int, const Entry*>;

std::map<int, PageSettings> findSettings(const PmFile& file)
{
    std::map<int, PageSettings> pages;
    for (const Entry& entry : file.entries) {
        const int page = registerPage(entry);
        if (entry.isValue() && entry.row->kind == Kind::SETTING && isPage(page)
            && page != Command::ALL_PAGES) {
            pages[page][entry.code] = &entry;
        }
    }
    return pages;
}

bool isUsed(const PageSettings& settings)
{
    return !std::all_of(settings.begin(), settings.end(),
                        [](const auto& setting) { return isFactoryValue(*setting.second); });
}

/// Each value is below the next of its row that is there.
constexpr std::uint8_t ASCENDING[][7] = {
    {VoutUVFaultLimit::CODE, VoutUVWarnLimit::CODE, VoutMarginLow::CODE, MfrChannelNominal::CODE,
     VoutMarginHigh::CODE, VoutOVWarnLimit::CODE, VoutOVFaultLimit::CODE},
    {PowerGoodOff::CODE, PowerGoodOn::CODE, MfrChannelNominal::CODE},
    {OTWarnLimit::CODE, OTFaultLimit::CODE},
};

void limitOrder(const PmFile& file, Report& report)
{
    for (const auto& [page, settings] : findSettings(file)) {
        for (const std::span<const std::uint8_t> row : ASCENDING) {
            const Entry* lower = nullptr;
            for (const std::uint8_t code : row) {
                const auto found = settings.find(code);
                if (code == Page::CODE || found == settings.end()) { // a row is filled up with 0
                    continue;
                }
                if (code == MfrChannelNominal::CODE && isFactoryValue(*found->second)) {
                    continue; // not set: another complaint
                }
                const Entry* const entry = found->second;
                if (lower != nullptr && isUsed(settings)
                    && numberOf(*lower->row, lower->value())
                           >= numberOf(*entry->row, entry->value())) {
                    report.add(std::max(lower->line, entry->line),
                               commandName(*lower) + " (" + valueOf(*lower) + ") must be below "
                                   + commandName(*entry) + " (" + valueOf(*entry) + ") of "
                                   + pageName(page));
                }
                lower = entry;
            }
        }
    }
}

void noLimit(const PmFile& file, Report& report)
{
    for (const auto& [page, settings] : findSettings(file)) {
        for (const std::uint8_t code : {VoutOVFaultLimit::CODE, VoutOVWarnLimit::CODE}) {
            const auto found = settings.find(code);
            if (found != settings.end() && isUsed(settings) && isFactoryValue(*found->second)) {
                report.add(found->second->line,
                           what(*found->second) + " is never reached: " + valueOf(*found->second)
                               + " is its value for never");
            }
        }
    }
}

void noNominal(const PmFile& file, Report& report)
{
    for (const auto& [page, settings] : findSettings(file)) {
        const auto found = settings.find(MfrChannelNominal::CODE);
        if (found != settings.end() && isUsed(settings) && isFactoryValue(*found->second)) {
            report.add(found->second->line,
                       what(*found->second) + " is 0 V, though the channel is used");
        }
    }
}

/// How much of a file has to be sound for a complaint to make sense.
enum class Needs { NOTHING, RECORDS, ENTRIES };

constexpr struct {
    const char* name;
    bool isError;
    Needs needs;
    void (*find)(const PmFile& file, Report& report);
} COMPLAINTS[] = {
    {"broken-record", true, Needs::NOTHING, brokenRecord},
    {"stray-line", true, Needs::NOTHING, strayLine},
    {"checksum", true, Needs::NOTHING, checksum},
    {"address", true, Needs::NOTHING, address},
    {"record-type", true, Needs::NOTHING, recordType},
    {"end-record", true, Needs::NOTHING, endRecord},
    {"surplus-text", true, Needs::NOTHING, surplusText},
    {"record-mark", false, Needs::NOTHING, recordMark},
    {"broken-entry", true, Needs::RECORDS, brokenEntry},
    {"unknown-command", true, Needs::RECORDS, unknownCommand},
    {"surplus-data", true, Needs::RECORDS, surplusData},
    {"no-such-page", true, Needs::RECORDS, noSuchPage},
    {"access", true, Needs::RECORDS, access},
    {"no-setting", true, Needs::RECORDS, noSetting},
    {"conflict", true, Needs::RECORDS, conflict},
    {"repetition", false, Needs::RECORDS, repetition},
    {"no-version", false, Needs::ENTRIES, noVersion},
    {"several-versions", false, Needs::RECORDS, severalVersions},
    {"version-last", false, Needs::ENTRIES, versionLast},
    {"before-page", false, Needs::RECORDS, beforePage},
    {"action", false, Needs::RECORDS, action},
    {"limit-order", false, Needs::ENTRIES, limitOrder},
    {"no-limit", false, Needs::ENTRIES, noLimit},
    {"no-nominal", false, Needs::ENTRIES, noNominal},
};

Needs soundness(const PmFile& file)
{
    const auto isBroken = [](const RecordLine& record) { return record.record.fault != nullptr; };
    if (std::any_of(file.records.begin(), file.records.end(), isBroken)) {
        return Needs::NOTHING;
    }
    const bool whole = std::all_of(file.entries.begin(), file.entries.end(),
                                   [](const Entry& entry) { return entry.isWhole; });
    return whole ? Needs::ENTRIES : Needs::RECORDS;
}

} // namespace

std::vector<Finding> findComplaints(const PmFile& file, const Allowed& allowed)
{
    const auto allows = [&](const char* name) {
        return std::find(allowed.begin(), allowed.end(), name) != allowed.end();
    };
    std::vector<Finding> findings;
    for (const auto& complaint : COMPLAINTS) {
        if (complaint.needs <= soundness(file) && !allows("all") && !allows(complaint.name)) {
            Report report(complaint.name, complaint.isError, findings);
            complaint.find(file, report);
        }
    }
    std::ranges::stable_sort(findings, {}, &Finding::line);
    return findings;
}

bool areComplaints(const Allowed& allowed)
{
    const auto isComplaint = [](const std::string& name) {
        return name == "all"
               || std::any_of(std::begin(COMPLAINTS), std::end(COMPLAINTS),
                              [&](const auto& one) { return one.name == name; });
    };
    const auto wrong = std::find_if_not(allowed.begin(), allowed.end(), isComplaint);
    if (wrong == allowed.end()) {
        return true;
    }
    std::string names;
    for (const auto& complaint : COMPLAINTS) {
        names.append(complaint.name).append(", ");
    }
    tell("--allow '" + *wrong + "': expected one of " + names + "or all");
    return false;
}

int check(const std::vector<std::string>& paths, const Allowed& allowed)
{
    int status = STATUS_GOOD;
    for (const std::string& path : paths) {
        std::string text;
        if (!readText(path, text)) {
            status = STATUS_TROUBLE;
            continue;
        }
        const PmFile file(path, std::move(text));
        if (file.entries.empty()) {
            tell(path + ": expected entries, but has none");
            status = STATUS_TROUBLE;
        }
        for (const Finding& finding : findComplaints(file, allowed)) {
            print(printable(path) + ":" + std::to_string(finding.line) + ": "
                  + (finding.isError ? "error: " : "warning: ") + finding.text + "\n");
            status = std::max(status, finding.isError ? STATUS_TROUBLE : STATUS_DIFFERENT);
        }
    }
    return finishOutput(status);
}
