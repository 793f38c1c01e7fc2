#include "pmFile.h"

#include <algorithm>

#include "text.h"

using pmDataFile::DIGITS_PER_BYTE;
using pmDataFile::ENTRY_HEAD_BYTES;

PmFile::PmFile(std::string fileName, std::string content)
    : name(std::move(fileName)),
      text(std::move(content))
{
    std::string digits;
    digits.reserve(text.size());
    findRecords(digits);
    bytes.reserve(digits.size() / DIGITS_PER_BYTE);
    for (std::size_t at = 0; at < digits.size(); at += DIGITS_PER_BYTE) {
        bytes.push_back(
            static_cast<std::uint8_t>(pmDataFile::parseHex(digits, at, DIGITS_PER_BYTE)));
    }
    findEntries(digits);
}

void PmFile::findRecords(std::string& digits)
{
    for (pmDataFile::Lines lines(text); lines.next();) {
        const RecordLine found{pmDataFile::parseRecord(lines.line()), lines.line(), lines.number()};
        if (lines.isRecord()) {
            records.push_back(found);
            digits += found.record.data;
        } else if (!trimmed(lines.line()).empty()) {
            strays.push_back(found);
        }
    }
}

void PmFile::findEntries(const std::string& digits)
{
    constexpr std::size_t USUAL_ENTRY_BYTES = 4; // an entry of a word
    entries.reserve(bytes.size() / USUAL_ENTRY_BYTES);
    int index = 0;
    int page = NO_PAGE;
    auto record = records.begin();
    std::size_t recordEnd = 0;
    for (pmDataFile::Entries walk(digits); walk.next();) {
        // The record in which the entry begins is the first that ends after its offset.
        while (recordEnd <= walk.offset() && record != records.end()) {
            recordEnd += record->record.data.size() / DIGITS_PER_BYTE;
            ++record;
        }
        const catalogue::Row* const row = catalogue::find(walk.code());
        const std::size_t begin = std::min(walk.offset() + ENTRY_HEAD_BYTES, bytes.size());
        const std::size_t size = std::min<std::size_t>(walk.length(), bytes.size() - begin);
        Entry entry{row,           std::span(bytes).subspan(begin, size),
                    walk.offset(), std::prev(record)->line,
                    walk.code(),   row == nullptr ? -1 : index++,
                    page,          walk.findFault().empty()};
        if (entry.selectsPage() && entry.isValue()) {
            page = entry.page = entry.data[0];
        }
        entries.push_back(entry);
    }
}

std::string PmFile::faultOf(const Entry& entry) const
{
    return pmDataFile::findEntryFault(bytes.size() - entry.offset, bytes[entry.offset], entry.code);
}

bool hasEntries(const PmFile& file, std::string& error)
{
    if (file.entries.empty()) {
        error = file.name + ": contains no entries";
    }
    return !file.entries.empty();
}

bool isLoadable(const PmFile& file, std::string& error)
{
    for (const RecordLine& record : file.records) {
        if (record.record.fault != nullptr) {
            error = formatted("%s:%u: the line %s", file.name.c_str(), record.line,
                              record.record.fault);
            return false;
        }
    }
    for (const Entry& entry : file.entries) {
        if (!entry.isWhole) {
            error = formatted("%s:%u: the entry at byte %zu %s", file.name.c_str(), entry.line,
                              entry.offset, file.faultOf(entry).c_str());
            return false;
        }
    }
    return hasEntries(file, error);
}
