#include "list.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <vector>

#include "messages.h"
#include "textFile.h"
#include "values.h"

namespace {

constexpr std::string_view BLANKS = " \t\r";
constexpr const char* RAW = "raw";

/// What 16-bit load addresses reach.
constexpr std::size_t MOST_BYTES = 65536;

/// Kinds of sections that have a number, how many there are, and the page of number 0.
constexpr struct {
    const char* name;
    int count;
    int firstPage;
} SECTIONS[] = {{"channel", 12, 0}, {"sensor", 5, 13}, {"page", 256, 0}};

/// Divides at the first blank: the word before it stays in `text`'s place.
std::string_view takeWord(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    const std::size_t end = std::min(text.find_first_of(BLANKS), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

std::string_view trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    return text.substr(0, text.find_last_not_of(BLANKS) + 1);
}

/// The line without its comment; a # within quotes is none.
std::string_view withoutComment(std::string_view line)
{
    bool isQuoted = false;
    for (std::size_t at = 0; at < line.size(); ++at) {
        isQuoted = isQuoted != (line[at] == '"');
        if (line[at] == '#' && !isQuoted) {
            return line.substr(0, at);
        }
    }
    return line;
}

/// Collects the data of a list and tells its mistakes.
class ListReader {
public:
    explicit ListReader(const std::string& name) : m_name(name) {}

    /// Reads one line of the list.
    void read(std::string_view line, unsigned int number);

    bool isSound() const { return m_sound; }
    const std::vector<std::uint8_t>& bytes() const { return m_bytes; }
    /// The list's lines of the entries, in their order.
    const std::vector<unsigned int>& lines() const { return m_lines; }

private:
    void readSection(std::string_view title);
    void readRaw(std::string_view text);
    void readRegister(std::string_view name, std::string_view value);
    void add(unsigned int code, const std::vector<std::uint8_t>& data);
    void complain(const std::string& what);

    const std::string& m_name;
    unsigned int m_line = 0;
    bool m_sound = true;
    std::vector<std::uint8_t> m_bytes;
    std::vector<unsigned int> m_lines;
};

void ListReader::read(std::string_view line, unsigned int number)
{
    m_line = number;
    line = trimmed(withoutComment(line));
    if (line.empty()) {
        return;
    }
    if (line.front() == '[') {
        const bool closed = line.back() == ']';
        closed ? readSection(line.substr(1, line.size() - 2)) : complain("a [section] ends with ]");
        return;
    }
    const std::string_view name = takeWord(line);
    name == RAW ? readRaw(line) : readRegister(name, trimmed(line));
}

// Behind the number stands what the supply is called, or nothing.
void ListReader::readSection(std::string_view title)
{
    const std::string kind(takeWord(title));
    if (kind == "device") {
        add(Page::CODE, {Command::ALL_PAGES});
        return;
    }
    const auto* const section = std::find_if(std::begin(SECTIONS), std::end(SECTIONS),
                                             [&](const auto& one) { return kind == one.name; });
    if (section == std::end(SECTIONS)) {
        complain("write [channel N], [sensor N], [device] or [page N]");
        return;
    }
    const std::string_view digits = takeWord(title);
    const bool isNumber = !digits.empty() && digits.size() <= 3
                          && digits.find_first_not_of("0123456789") == std::string_view::npos;
    const int number = isNumber ? std::stoi(std::string(digits)) : section->count;
    if (number >= section->count) {
        complain("write [" + kind + " 0] to [" + kind + " " + std::to_string(section->count - 1)
                 + "], a name behind it if you like");
        return;
    }
    add(Page::CODE, {static_cast<std::uint8_t>(section->firstPage + number)});
}

void ListReader::readRaw(std::string_view text)
{
    std::vector<std::uint8_t> data;
    std::vector<std::uint8_t> some;
    bool isHex = true;
    for (std::string_view word = takeWord(text); !word.empty(); word = takeWord(text)) {
        isHex = readHexBytes(word, some) && isHex;
        data.insert(data.end(), some.begin(), some.end());
    }
    if (!isHex || data.empty() || data.size() > 1 + pmDataFile::Entries::MAX_LENGTH) {
        complain("write the command code and up to 255 data bytes, two hexadecimal digits each, as "
                 "in raw 42 28 32");
        return;
    }
    const unsigned int code = data.front();
    data.erase(data.begin());
    add(code, data);
}

void ListReader::readRegister(std::string_view name, std::string_view value)
{
    const auto* const row = std::ranges::find_if(
        catalogue::ROWS, [&](const catalogue::Row& one) { return name == one.name.text; });
    if (row == std::end(catalogue::ROWS)) {
        complain("no register is called " + std::string(name)
                 + "; write the name of one, or raw, its command code and its bytes");
        return;
    }
    std::vector<std::uint8_t> data;
    std::string error;
    if (!readValue(*row, value, data, error)) {
        complain(std::string(name) + " '" + std::string(value) + "': " + error);
        return;
    }
    add(row->code, data);
}

void ListReader::add(unsigned int code, const std::vector<std::uint8_t>& data)
{
    m_bytes.push_back(static_cast<std::uint8_t>(data.size()));
    m_bytes.push_back(static_cast<std::uint8_t>(code));
    m_bytes.insert(m_bytes.end(), data.begin(), data.end());
    m_lines.push_back(m_line);
}

void ListReader::complain(const std::string& what)
{
    m_sound = false;
    tell(m_name, m_line, what);
}

/// Whether a section line says all that the entry does.
bool isSection(const Entry& entry)
{
    return entry.isPage() && entry.data.size() == 1;
}

/// The line that begins a page: "[channel 3]".
std::string sectionLine(int page)
{
    return "[" + (page == Command::ALL_PAGES ? "device" : pageName(page)) + "]\n";
}

/// The line of another entry: a register's name and its value.
std::string listLine(const Entry& entry)
{
    constexpr std::size_t VALUE_COLUMN = 24;
    if (entry.row == nullptr || entry.isPage() || entry.data.size() != entry.row->size) {
        char code[8];
        std::snprintf(code, sizeof(code), " %02X", entry.code);
        return RAW + std::string(code) + (entry.data.empty() ? "" : " ") + hexBytes(entry.data)
               + "\n";
    }
    std::string line = commandName(entry);
    if (entry.row->size > 0) {
        line.resize(std::max(line.size() + 1, VALUE_COLUMN), ' ');
    }
    return line + valueText(*entry.row, entry.value()) + "\n";
}

} // namespace

int source(const std::string& path)
{
    const auto file = loadFile(path);
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
    std::string list;
    if (!mayWrite(outputPath, {listPath}, Existing::REPLACE) || !readText(listPath, list)) {
        return STATUS_TROUBLE;
    }
    ListReader reader(listPath);
    for (pmDataFile::Lines lines(list); lines.next();) {
        reader.read(lines.line(), lines.number());
    }
    if (!reader.isSound()) {
        return STATUS_TROUBLE;
    }
    const std::vector<std::uint8_t>& bytes = reader.bytes();
    if (bytes.empty() || bytes.size() > MOST_BYTES) {
        tell(listPath
             + (bytes.empty() ? ": expected registers, but has none"
                              : ": has more than the 65,536 bytes that load addresses reach"));
        return STATUS_TROUBLE;
    }
    PmFile file(listPath, pmDataFile::makeRecords(bytes.data(), bytes.size()));
    // What is complained about stands in the list.
    for (std::size_t i = 0; i < file.entries.size(); ++i) {
        file.entries[i].line = reader.lines()[i];
    }
    file.records.back().line = reader.lines().back();
    const std::vector<Finding> findings = findComplaints(file, allowed);
    for (const Finding& finding : findings) {
        tell(listPath, finding.line, (finding.isError ? "error: " : "warning: ") + finding.text);
    }
    return findings.empty() ? writeOutput(outputPath, file.text, Existing::REPLACE)
                            : STATUS_TROUBLE;
}
