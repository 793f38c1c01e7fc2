// The complaints that check knows, by subject. Each has a function that finds it in a file; check
// needs only the tables of these.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "check.h"
#include "values.h"

/// Collects the findings of one complaint.
class Report {
public:
    Report(std::string_view name, bool isError, std::vector<Finding>& findings)
        : m_name(name),
          m_isError(isError),
          m_findings(findings)
    {
    }

    void add(unsigned int line, const std::string& text)
    {
        m_findings.push_back({line, m_isError, m_name, text});
    }

private:
    std::string_view m_name;
    bool m_isError;
    std::vector<Finding>& m_findings;
};

/// How much of a file must be sound for a complaint to make sense.
enum class Needs { NOTHING, RECORDS, ENTRIES };

struct Complaint {
    std::string_view name;
    bool isError;
    Needs needs;
    void (*find)(const PmFile& file, Report& report);
};

extern const std::span<const Complaint> RECORD_COMPLAINTS;
extern const std::span<const Complaint> ENTRY_COMPLAINTS;
extern const std::span<const Complaint> SETTING_COMPLAINTS;

/// The value in its unit.
inline std::string valueOf(const Entry& entry)
{
    return spokenValue(*entry.row, entry.value());
}

/// A number of 0 to HIGHEST_WORD, as the value of a word.
inline std::string valueOfNumber(const catalogue::Row& row, int number)
{
    return spokenValue(row, toBytes(row, static_cast<unsigned int>(number)));
}

/// The line at which something missing is reported.
inline unsigned int lastLine(const PmFile& file)
{
    return file.records.empty() ? 1 : file.records.back().line;
}
