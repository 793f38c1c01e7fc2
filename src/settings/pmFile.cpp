#include "pmFile.h"

#include <algorithm>

#include "messages.h"
#include "text.h"
#include "textFile.h"

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
        if (entry.isPage() && entry.isValue()) {
            page = entry.page = entry.data[0];
        }
        entries.push_back(entry);
    }
}

std::string PmFile::faultOf(const Entry& entry) const
{
    return pmDataFile::findEntryFault(bytes.size() - entry.offset, bytes[entry.offset], entry.code);
}

bool requireEntries(const PmFile& file)
{
    if (file.entries.empty()) {
        tell(file.name + ": contains no entries");
    }
    return !file.entries.empty();
}

bool requireLoadable(const PmFile& file)
{
    for (const RecordLine& record : file.records) {
        if (record.record.fault != nullptr) {
            tell(file.name, record.line, formatted("the line %s", record.record.fault));
            return false;
        }
    }
    for (const Entry& entry : file.entries) {
        if (!entry.isWhole) {
            tell(file.name, entry.line,
                 formatted("the entry at byte %zu %s", entry.offset, file.faultOf(entry).c_str()));
            return false;
        }
    }
    return requireEntries(file);
}

std::unique_ptr<PmFile> loadFile(const std::string& path)
{
    std::string text;
    if (!readText(path, text)) {
        return nullptr;
    }
    auto file = std::make_unique<PmFile>(path, std::move(text));
    return requireLoadable(*file) ? std::move(file) : nullptr;
}

bool isPage(int page)
{
    const auto byte = static_cast<std::uint8_t>(page);
    return page == byte
           && (Command::isChannelPage(byte) || Command::isTemperaturePage(byte)
               || Command::isAllPages(byte));
}

int registerPage(const Entry& entry)
{
    const bool shared = entry.row != nullptr && entry.row->deviceAccess != Command::NO
                        && entry.code != Operation::CODE;
    return shared ? Command::ALL_PAGES : entry.page;
}

std::string pageName(int page)
{
    constexpr int FIRST_SENSOR_PAGE = 13;
    if (page == NO_PAGE) {
        return "before the first page";
    }
    if (page == Command::ALL_PAGES) {
        return "device";
    }
    const auto byte = static_cast<std::uint8_t>(page);
    if (Command::isChannelPage(byte)) {
        return formatted("channel %d", page);
    }
    return Command::isTemperaturePage(byte) ? formatted("sensor %d", page - FIRST_SENSOR_PAGE)
                                            : formatted("page %d", page);
}

std::string commandName(const Entry& entry)
{
    if (entry.row != nullptr) {
        return entry.row->name.text;
    }
    return formatted("command %02X", entry.code);
}

std::string placeName(int page)
{
    return (page == Command::ALL_PAGES ? "the " : "") + pageName(page);
}

std::string registerName(const Entry& entry)
{
    const int page = registerPage(entry);
    return commandName(entry) + (page == NO_PAGE ? " " : " of ") + placeName(page);
}

bool isFactoryValue(const Entry& entry)
{
    for (unsigned int i = 0; i < entry.row->size; ++i) {
        if (entry.data[i] != factoryByte(*entry.row, i)) {
            return false;
        }
    }
    return true;
}

bool isIdentity(const Entry& entry)
{
    return entry.row != nullptr && entry.row->format == catalogue::Format::TEXT;
}
