#include "list.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "listLine.h"
#include "messages.h"
#include "text.h"
#include "textFile.h"
#include "values.h"

namespace {

/// They look like a blank; word processors and web pages use the wide and the narrow one.
constexpr std::string_view NO_BREAK_SPACES[] = {"\u00A0", "\u202F"};

/// The number of bytes that 16-bit load addresses reach.
constexpr std::size_t MOST_BYTES = 65536;

/// What is wrong with a list or what it makes, by the lines of the list.
using Complaints = std::multimap<unsigned int, std::string>;

/// Reads the lines of a list and collects the data that they make.
class ListReader {
public:
    /// `needsSection`: whether every register needs a section line above it.
    explicit ListReader(bool needsSection) : m_needsSection(needsSection) {}

    void read(std::string_view line, unsigned int number);

    /// Mistakes, with corrections.
    const Complaints& mistakes() const { return m_mistakes; }
    const std::vector<std::uint8_t>& bytes() const { return m_bytes; }
    /// The list's lines of the entries, in their order.
    const std::vector<unsigned int>& lines() const { return m_lines; }

private:
    /// Whether the page of a register is known; after a broken section line it is not.
    enum class Place { NONE, KNOWN, UNKNOWN };

    void readSection(std::string_view line);
    void readRaw(std::string_view text);
    void readRegister(std::string_view name, std::string_view value);
    void add(unsigned int code, const std::vector<std::uint8_t>& data);
    void complain(std::string what);

    bool m_needsSection;
    std::string_view m_text; ///< the current line without its comment
    unsigned int m_line = 0;
    Place m_place = Place::NONE;
    Complaints m_mistakes;
    std::vector<std::uint8_t> m_bytes;
    std::vector<unsigned int> m_lines;
};

void ListReader::read(std::string_view line, unsigned int number)
{
    m_line = number;
    m_text = trimmed(withoutComment(line));
    if (m_text.empty()) {
        return;
    }
    if (m_text.front() == '[') {
        m_place = Place::UNKNOWN;
        readSection(m_text);
        return;
    }
    std::string_view value = m_text;
    const std::string_view name = takeWord(value);
    if (name == RAW) {
        readRaw(value);
    } else {
        readRegister(name, trimmed(value));
    }
}

void ListReader::readSection(std::string_view line)
{
    std::string error;
    if (const auto section = parseSection(line, error)) {
        add(Page::CODE, {static_cast<std::uint8_t>(section->page)});
    } else {
        complain(error);
    }
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
        complain(formatted("there is no register %s; write a register's name, or raw, its command "
                           "code and its bytes",
                           printable(name).c_str()));
        return;
    }
    std::vector<std::uint8_t> data;
    const std::string error = readValue(*row, value, data);
    if (!error.empty()) {
        complain(formatted("%s '%s': %s", row->name.text, printable(value).c_str(), error.c_str()));
        return;
    }
    add(row->code, data);
}

void ListReader::add(unsigned int code, const std::vector<std::uint8_t>& data)
{
    if (code == Page::CODE && !data.empty()) {
        m_place = Place::KNOWN;
    }
    if (m_place == Place::NONE && m_needsSection) {
        m_place = Place::UNKNOWN;
        complain("the register is before the first section; write [channel N], [sensor N] or "
                 "[device] above it, or give --allow before-page");
    }
    if (m_place == Place::UNKNOWN) {
        return;
    }
    m_bytes.push_back(static_cast<std::uint8_t>(data.size()));
    m_bytes.push_back(static_cast<std::uint8_t>(code));
    m_bytes.insert(m_bytes.end(), data.begin(), data.end());
    m_lines.push_back(m_line);
}

void ListReader::complain(std::string what)
{
    // Everything else that seems to be wrong follows from it.
    const bool hasNoBreakSpace = std::ranges::any_of(NO_BREAK_SPACES, [this](auto space) {
        return m_text.find(space) != std::string_view::npos;
    });
    m_mistakes.emplace(m_line, hasNoBreakSpace
                                   ? "the line contains a no-break space; write a blank instead"
                                   : std::move(what));
}

/// Whether a section line expresses the entry completely.
bool isSection(const Entry& entry)
{
    return entry.selectsPage() && entry.data.size() == 1;
}

/// The section line of a page: "[channel 3]".
std::string sectionLine(int page)
{
    return formatted("[%s]\n", pageNumberName(page).c_str());
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

/// The file that a list makes, each entry with its line of the list.
std::unique_ptr<PmFile> makeFile(const std::string& listPath, const ListReader& reader)
{
    const std::vector<std::uint8_t>& bytes = reader.bytes();
    auto file =
        std::make_unique<PmFile>(listPath, pmDataFile::makeRecords(bytes.data(), bytes.size()));
    for (std::size_t i = 0; i < file->entries.size(); ++i) {
        file->entries[i].line = reader.lines()[i];
    }
    file->records.back().line = reader.lines().back();
    return file;
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
    const bool needsSection = std::ranges::none_of(
        allowed, [](const std::string& name) { return name == "all" || name == "before-page"; });
    ListReader reader(needsSection);
    for (pmDataFile::Lines lines(withoutByteOrderMark(list)); lines.next();) {
        reader.read(lines.line(), lines.number());
    }
    Complaints complaints = reader.mistakes();
    const bool isRead = complaints.empty();
    std::vector<Finding> findings;
    if (!reader.bytes().empty() && reader.bytes().size() <= MOST_BYTES) {
        const auto file = makeFile(listPath, reader);
        text = file->text;
        findings = findComplaints(*file, allowed, isRead);
    }
    for (const Finding& finding : findings) {
        complaints.emplace(finding.line, finding.inWords());
    }
    for (const auto& [line, complaint] : complaints) {
        tell(listPath, line, complaint);
    }
    if (reader.bytes().size() > MOST_BYTES) {
        tell(listPath + ": has more than the 65,536 bytes that load addresses reach");
    } else if (isRead && text.empty()) {
        tell(listPath + ": contains no registers");
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
