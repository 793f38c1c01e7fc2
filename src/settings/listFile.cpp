#include "listFile.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "listLine.h"
#include "pageSettings.h"
#include "text.h"
#include "values.h"

using catalogue::Format;
using catalogue::Row;

namespace {

/// They look like a blank; word processors and web pages use the wide and the narrow one.
constexpr std::string_view NO_BREAK_SPACES[] = {"\u00A0", "\u202F"};

/// The number of bytes that 16-bit load addresses reach.
constexpr std::size_t MOST_BYTES = 65536;

/// The lines of a section that are no registers.
constexpr std::string_view USE = "use";
constexpr std::string_view UNUSED = "unused";

/// Of the nominal voltage.
constexpr int HUNDREDTHS_IN_ALL = 10000;

/// A line that makes an entry.
struct Item {
    unsigned int code;
    std::vector<std::uint8_t> data;
    unsigned int line;
    std::optional<int> percent; ///< in hundredths, off the nominal voltage, in place of data
    std::string text;           ///< the percentage as it was written
};

/// What stands below a section line, or before the first.
struct Block {
    enum Kind { BEFORE, PAGE, TEMPLATE, BROKEN } kind;
    int page;
    unsigned int line;
    std::string_view name; ///< of a template
    std::vector<Item> items;
    std::string_view used; ///< the template that it takes over
    unsigned int useLine;
    unsigned int unusedLine; ///< 0 if it does not say so
};

/// How many letters have to be changed, added or left out to make one word of another.
std::size_t distance(std::string_view one, std::string_view other)
{
    std::vector<std::size_t> before(other.size() + 1);
    for (std::size_t i = 0; i < before.size(); ++i) {
        before[i] = i;
    }
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::vector<std::size_t> now = {i + 1};
        for (std::size_t k = 0; k < other.size(); ++k) {
            const std::size_t changed = before[k] + (one[i] == other[k] ? 0 : 1);
            now.push_back(std::min({changed, before[k + 1] + 1, now[k] + 1}));
        }
        before = now;
    }
    return before.back();
}

/// The register that was probably meant; null if none is near.
const Row* findSimilar(std::string_view name)
{
    constexpr std::size_t FARTHEST = 3;
    constexpr std::size_t LONGEST = 40; // of a name that is worth a look
    std::string capital(name.substr(0, LONGEST));
    std::ranges::transform(capital, capital.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c == '-' ? '_' : c;
    });
    const auto* const nearest = std::ranges::min_element(
        catalogue::ROWS, {}, [&](const Row& row) { return distance(capital, row.name.text); });
    return distance(capital, nearest->name.text) <= std::min(FARTHEST, name.size() / 3) ? nearest
                                                                                        : nullptr;
}

/// Reads "+12 %" or "-8.25 %". Returns how to correct it, or nothing if it is right.
std::string readPercent(std::string_view text, int& hundredths)
{
    const char sign = text.front();
    std::string_view digits = trimmed(text.substr(0, text.size() - 1));
    digits.remove_prefix(sign == '+' || sign == '-' ? 1 : 0);
    const std::size_t point = std::min(digits.find('.'), digits.size());
    const auto whole = takeNumber(digits.substr(0, point), 0, HIGHEST_WORD);
    std::string decimals(digits.substr(std::min(point + 1, digits.size())));
    const bool hasDecimals = point < digits.size();
    decimals.resize(std::max<std::size_t>(decimals.size(), 2), '0');
    const auto rest = takeNumber(decimals, 0, 99);
    if (!whole || !rest || decimals.size() > 2 || (hasDecimals && point + 1 == digits.size())) {
        return "write a percentage with up to two decimals, as in +12 % or -8.25 %";
    }
    if (sign != '+' && sign != '-') {
        return formatted("write +%.*s %% or -%.*s %%: above or below the nominal voltage",
                         static_cast<int>(digits.size()), digits.data(),
                         static_cast<int>(digits.size()), digits.data());
    }
    const int number = static_cast<int>(*whole * 100 + *rest);
    hundredths = sign == '-' ? -number : number;
    return "";
}

/// Reads the lines of a list, then makes the data that they stand for.
class ListReader {
public:
    explicit ListReader(bool needsSection) : m_needsSection(needsSection) {}

    void read(std::string_view line, unsigned int number);
    void expand();

    ListComplaints& mistakes() { return m_mistakes; }
    const std::vector<std::uint8_t>& bytes() const { return m_bytes; }
    /// The list's lines of the entries, in their order.
    const std::vector<unsigned int>& lines() const { return m_lines; }
    const Names& names() const { return m_names; }

private:
    Block& block() { return m_blocks.back(); }
    void readTemplate(std::string_view name);
    void readSection(std::string_view line);
    void readUse(std::string_view name);
    void readUnused(std::string_view rest);
    void readRaw(std::string_view text);
    void readRegister(std::string_view name, std::string_view value);
    void add(Item item);
    void complain(std::string what);

    void checkTemplates();
    void checkUnused(const Block& one);
    const Block* findTemplate(std::string_view name) const;
    std::vector<Item> itemsOf(const Block& one) const;
    void resolve(Item& item, int page, const std::map<int, int>& nominals);
    void emit(const Item& item);

    bool m_needsSection;
    std::string_view m_text; ///< the current line without its comment
    unsigned int m_line = 0;
    std::vector<Block> m_blocks{{Block::BEFORE, NO_PAGE, 0, {}, {}, {}, 0, 0}};
    ListComplaints m_mistakes;
    std::vector<std::uint8_t> m_bytes;
    std::vector<unsigned int> m_lines;
    Names m_names;
};

void ListReader::read(std::string_view line, unsigned int number)
{
    m_line = number;
    m_text = trimmed(withoutComment(line));
    if (m_text.empty()) {
        return;
    }
    if (m_text.front() == '[') {
        const auto name = parseTemplate(m_text);
        if (name) {
            readTemplate(*name);
        } else {
            readSection(m_text);
        }
        return;
    }
    std::string_view value = m_text;
    const std::string_view name = takeWord(value);
    if (name == RAW) {
        readRaw(value);
    } else if (name == USE) {
        readUse(trimmed(value));
    } else if (name == UNUSED) {
        readUnused(trimmed(value));
    } else {
        readRegister(name, trimmed(value));
    }
}

void ListReader::readTemplate(std::string_view name)
{
    const Block* const other = findTemplate(name);
    if (name.empty() || name.find_first_of(BLANKS) != std::string_view::npos) {
        complain("a template has a name of one word, as in [template core]");
        name = {};
    } else if (other != nullptr) {
        complain(formatted("there is a template %s already, in line %u", printable(name).c_str(),
                           other->line));
    }
    m_blocks.push_back({Block::TEMPLATE, NO_PAGE, m_line, name, {}, {}, 0, 0});
}

void ListReader::readSection(std::string_view line)
{
    std::string error;
    const auto section = parseSection(line, error);
    if (!section) {
        complain(error);
        m_blocks.push_back({Block::BROKEN, NO_PAGE, m_line, {}, {}, {}, 0, 0});
        return;
    }
    m_blocks.push_back({Block::PAGE, section->page, m_line, {}, {}, {}, 0, 0});
    if (!section->name.empty()) {
        m_names[section->page] = printable(section->name);
    }
    block().items.push_back(
        {Page::CODE, {static_cast<std::uint8_t>(section->page)}, m_line, std::nullopt, ""});
}

void ListReader::readUse(std::string_view name)
{
    if (block().kind == Block::BROKEN) {
        return;
    }
    if (block().kind != Block::PAGE) {
        complain("a template is used below a section such as [channel 3]; a template uses none");
    } else if (name.empty() || name.find_first_of(BLANKS) != std::string_view::npos) {
        complain("write the name of one template, as in use core");
    } else if (block().useLine != 0) {
        complain("a section uses one template");
    } else {
        block().used = name;
        block().useLine = m_line;
    }
}

void ListReader::readUnused(std::string_view rest)
{
    if (block().kind == Block::BROKEN) {
        return;
    }
    const bool hasPage = block().kind == Block::PAGE && block().page != Command::ALL_PAGES
                         && catalogue::isPage(block().page);
    if (!hasPage || !rest.empty()) {
        complain(hasPage ? "write unused alone in its line"
                         : "unused stands below the section line of a channel or sensor");
        return;
    }
    block().unusedLine = m_line;
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
    add({code, data, m_line, std::nullopt, ""});
}

void ListReader::readRegister(std::string_view name, std::string_view value)
{
    const auto* const row = std::ranges::find_if(
        catalogue::ROWS, [&](const Row& one) { return name == one.name.text; });
    if (row == std::end(catalogue::ROWS)) {
        const Row* const similar = findSimilar(name);
        complain(
            formatted("there is no register %s; %s", printable(name).c_str(),
                      similar != nullptr
                          ? formatted("did you mean %s?", similar->name.text).c_str()
                          : "write a register's name, or raw, its command code and its bytes"));
        return;
    }
    Item item{row->code, {}, m_line, std::nullopt, ""};
    std::string error;
    if (row->format == Format::VOLTS && value.ends_with('%')) {
        int hundredths = 0;
        error = row->code == MfrChannelNominal::CODE
                    ? "the others are in per cent of this voltage; write it in V"
                    : readPercent(value, hundredths);
        item.percent = hundredths;
        item.text = value;
    } else {
        error = readValue(*row, value, item.data);
    }
    if (!error.empty()) {
        complain(formatted("%s '%s': %s", row->name.text, printable(value).c_str(), error.c_str()));
        return;
    }
    add(std::move(item));
}

void ListReader::add(Item item)
{
    const bool selects = item.code == Page::CODE && !item.data.empty();
    if (block().kind == Block::TEMPLATE && item.code == Page::CODE) {
        complain("a template holds registers of any page; PAGE selects one");
        return;
    }
    if ((block().kind == Block::BEFORE || block().kind == Block::BROKEN) && selects) {
        m_blocks.push_back({Block::PAGE, item.data[0], m_line, {}, {}, {}, 0, 0});
    }
    if (block().kind == Block::BEFORE && m_needsSection) {
        complain("the register is before the first section; write [channel N], [sensor N] or "
                 "[device] above it, or give --allow before-page");
        m_blocks.push_back({Block::BROKEN, NO_PAGE, m_line, {}, {}, {}, 0, 0});
    }
    if (block().kind != Block::BROKEN) {
        block().items.push_back(std::move(item));
    }
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

const Block* ListReader::findTemplate(std::string_view name) const
{
    const auto found = std::ranges::find_if(m_blocks, [&](const Block& one) {
        return one.kind == Block::TEMPLATE && one.name == name;
    });
    return found == m_blocks.end() ? nullptr : &*found;
}

/// Complains of templates that are not there, and of those that nobody uses.
void ListReader::checkTemplates()
{
    std::set<std::string_view> used;
    for (const Block& one : m_blocks) {
        if (one.useLine != 0) {
            used.insert(one.used);
            if (findTemplate(one.used) == nullptr) {
                m_mistakes.emplace(one.useLine,
                                   formatted("there is no template %s; write [template %s] above "
                                             "its registers",
                                             printable(one.used).c_str(),
                                             printable(one.used).c_str()));
            }
        }
    }
    for (const Block& one : m_blocks) {
        if (one.kind == Block::TEMPLATE && !one.name.empty() && !used.contains(one.name)) {
            m_mistakes.emplace(one.line,
                               formatted("no section uses the template %s; remove it, or "
                                         "write use %s below a section line",
                                         printable(one.name).c_str(), printable(one.name).c_str()));
        }
    }
}

/// Complains of what stands beside "unused".
void ListReader::checkUnused(const Block& one)
{
    if (one.items.size() > 1 || one.useLine != 0) {
        m_mistakes.emplace(one.unusedLine, "unused gives all settings of "
                                               + pageNumberName(one.page)
                                               + " their factory values; nothing stands beside it");
    }
    for (const Block& other : m_blocks) {
        if (&other != &one && other.kind == Block::PAGE && other.page == one.page) {
            m_mistakes.emplace(one.unusedLine,
                               formatted("%s has another section, in line %u; keep one of them",
                                         pageNumberName(one.page).c_str(), other.line));
            return;
        }
    }
}

/// What a section stands for: the template's registers in its order, with the section's own values
/// where it has them, then the section's others.
std::vector<Item> ListReader::itemsOf(const Block& one) const
{
    std::vector<Item> items = one.items;
    if (one.unusedLine != 0) {
        for (const Row* row : settingsOf(one.page)) {
            items.push_back({row->code, factoryValue(*row), one.unusedLine, std::nullopt, ""});
        }
    }
    const Block* const used = one.useLine == 0 ? nullptr : findTemplate(one.used);
    if (used == nullptr) {
        return items;
    }
    std::vector<Item> merged = {items.front()}; // the page
    items.erase(items.begin());
    for (const Item& item : used->items) {
        const auto own = std::ranges::find(items, item.code, &Item::code);
        merged.push_back(own == items.end() ? item : *own);
        if (own != items.end()) {
            items.erase(own);
        }
    }
    merged.insert(merged.end(), items.begin(), items.end());
    return merged;
}

/// Makes a voltage of a percentage: the nearest step, halves away from the nominal voltage.
void ListReader::resolve(Item& item, int page, const std::map<int, int>& nominals)
{
    const Row& row = *catalogue::find(item.code);
    const auto nominal = nominals.find(page);
    if (nominal == nominals.end() || nominal->second <= 0) {
        m_mistakes.emplace(
            item.line, formatted("%s '%s': the list has no MFR_CHANNEL_NOMINAL above 0 V of %s "
                                 "to reckon this from; write it, too, or a voltage here",
                                 row.name.text, item.text.c_str(), pageNumberName(page).c_str()));
        return;
    }
    const long long part = 1LL * nominal->second * std::abs(*item.percent);
    const long long steps = (part + HUNDREDTHS_IN_ALL / 2) / HUNDREDTHS_IN_ALL;
    const long long number = nominal->second + (*item.percent < 0 ? -steps : steps);
    if (number < 0 || number > HIGHEST_WORD) {
        m_mistakes.emplace(
            item.line, formatted("%s '%s': for %s this is beyond 0.000 V to 32.767 V",
                                 row.name.text, item.text.c_str(), pageNumberName(page).c_str()));
        return;
    }
    item.data = toBytes(row, static_cast<unsigned int>(number));
}

void ListReader::emit(const Item& item)
{
    m_bytes.push_back(static_cast<std::uint8_t>(item.data.size()));
    m_bytes.push_back(static_cast<std::uint8_t>(item.code));
    m_bytes.insert(m_bytes.end(), item.data.begin(), item.data.end());
    m_lines.push_back(item.line);
}

void ListReader::expand()
{
    checkTemplates();
    std::vector<std::pair<int, Item>> items; // with the page that is selected then
    std::map<int, int> nominals;
    int page = NO_PAGE;
    for (const Block& one : m_blocks) {
        if (one.kind == Block::TEMPLATE || one.kind == Block::BROKEN) {
            continue;
        }
        if (one.unusedLine != 0) {
            checkUnused(one);
        }
        for (Item& item : itemsOf(one)) {
            if (item.code == Page::CODE && !item.data.empty()) {
                page = item.data[0];
            } else if (item.code == MfrChannelNominal::CODE
                       && item.data.size() == MfrChannelNominal::SIZE) {
                nominals[page] = numberOf(*catalogue::find(item.code), item.data);
            }
            items.emplace_back(page, std::move(item));
        }
    }
    for (auto& [where, item] : items) {
        if (item.percent) {
            resolve(item, where, nominals);
        }
        if (!item.percent || !item.data.empty()) {
            emit(item);
        }
    }
}

} // namespace

ListFile readList(const std::string& path, std::string_view text, bool needsSection)
{
    ListReader reader(needsSection);
    for (pmDataFile::Lines lines(withoutByteOrderMark(text)); lines.next();) {
        reader.read(lines.line(), lines.number());
    }
    reader.expand();
    ListFile made{std::move(reader.mistakes()), "", nullptr, reader.names()};
    const std::vector<std::uint8_t>& bytes = reader.bytes();
    if (bytes.size() > MOST_BYTES) {
        made.trouble = path + ": has more than the 65,536 bytes that load addresses reach";
        return made;
    }
    if (bytes.empty()) {
        made.trouble = made.mistakes.empty() ? path + ": contains no registers" : "";
        return made;
    }
    made.file = std::make_unique<PmFile>(path, pmDataFile::makeRecords(bytes.data(), bytes.size()));
    for (std::size_t i = 0; i < made.file->entries.size(); ++i) {
        made.file->entries[i].line = reader.lines()[i];
    }
    made.file->records.back().line = reader.lines().back();
    return made;
}
