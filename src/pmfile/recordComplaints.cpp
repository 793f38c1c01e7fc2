// Complaints about the records of a file: lines, checksums, addresses.
#include <algorithm>
#include <iterator>
#include <string_view>

#include "complaints.h"
#include "text.h"

namespace {

void brokenRecord(const PmFile& file, Report& report)
{
    for (const RecordLine& record : file.records) {
        if (record.record.fault != nullptr) {
            report.add(record.line, formatted("the line %s", record.record.fault));
        }
    }
}

void strayLine(const PmFile& file, Report& report)
{
    for (const RecordLine& stray : file.strays) {
        report.add(stray.line, "the line is too short for a record and is ignored");
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
            report.add(record.line, formatted("the checksum is %02X, but should be %02X",
                                              record.record.checksum, fitting));
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
            report.add(line,
                       formatted("the address is %04X, but should be %04X", record.address, next));
        }
        next = record.address + record.byteCount;
    }
}

void recordType(const PmFile& file, Report& report)
{
    for (const auto& [record, text, line] : file.records) {
        if (record.type != pmDataFile::DATA_RECORD && record.byteCount > 0) {
            report.add(line, formatted("the data in a record of type %02X is used as settings",
                                       record.type));
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
        report.add(std::next(end)->line,
                   "there is a record after the end record, and its data is used");
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
        if (!trimmed(record.text.substr(end)).empty()) {
            report.add(record.line, "the text after the record is ignored");
        }
    }
}

constexpr Complaint COMPLAINTS[] = {
    {"broken-record", true, Needs::NOTHING, brokenRecord},
    {"stray-line", true, Needs::NOTHING, strayLine},
    {"checksum", true, Needs::NOTHING, checksum},
    {"address", true, Needs::NOTHING, address},
    {"record-type", true, Needs::NOTHING, recordType},
    {"end-record", true, Needs::NOTHING, endRecord},
    {"surplus-text", true, Needs::NOTHING, surplusText},
    {"record-mark", false, Needs::NOTHING, recordMark},
};

} // namespace

const std::span<const Complaint> RECORD_COMPLAINTS = COMPLAINTS;
