#include "listLine.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "pmDataFile.h"
#include "text.h"

namespace {

/// Some editors put it at the beginning of a text.
constexpr std::string_view BYTE_ORDER_MARK = "\uFEFF";

/// Kinds of sections that have a number, how many there are, and the page of number 0.
struct SectionKind {
    std::string_view name;
    int count;
    int firstPage;
};
constexpr SectionKind SECTIONS[] = {{"channel", Command::CHANNELS, 0},
                                    {"sensor", Command::SENSORS, Command::FIRST_SENSOR_PAGE},
                                    {"page", 256, 0}};

/// Whether a line that begins with a bracket was meant as a section, as it ends with one or begins
/// with a word that records can't have.
bool isSectionLike(std::string_view line)
{
    std::string_view title = line.substr(1);
    return line.ends_with(']')
           || takeWord(title).find_first_not_of("0123456789ABCDEFabcdef") != std::string_view::npos;
}

} // namespace

std::string_view withoutByteOrderMark(std::string_view text)
{
    text.remove_prefix(text.starts_with(BYTE_ORDER_MARK) ? BYTE_ORDER_MARK.size() : 0);
    return text;
}

bool isList(std::string_view text)
{
    for (pmDataFile::Lines lines(withoutByteOrderMark(text)); lines.next();) {
        std::string_view line = trimmed(withoutComment(lines.line()));
        if (!line.empty()) {
            return line.front() == '[' ? isSectionLike(line) : takeWord(line) == RAW;
        }
    }
    return false;
}

std::string_view takeWord(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(BLANKS));
    text.remove_prefix(word.size());
    return word;
}

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

std::optional<std::string_view> parseTemplate(std::string_view line)
{
    std::string_view title = line.substr(1, line.find(']') - 1);
    const bool isTemplate = line.ends_with(']') && takeWord(title) == "template";
    return isTemplate ? std::optional(trimmed(title)) : std::nullopt;
}

std::optional<Section> parseSection(std::string_view line, std::string& error)
{
    const std::size_t end = line.find(']');
    if (end != line.size() - 1) {
        error = end == std::string_view::npos
                    ? "a [section] ends with ]"
                    : "there is text after the ] of the section; a comment begins with #";
        return std::nullopt;
    }
    std::string_view title = line.substr(1, end - 1);
    const std::string_view kind = takeWord(title);
    if (kind == "device") {
        return Section{Command::ALL_PAGES, trimmed(title)};
    }
    const auto* const section = std::ranges::find(SECTIONS, kind, &SectionKind::name);
    if (section == std::end(SECTIONS)) {
        error = "write [channel N], [sensor N], [device], [page N] or [template NAME]";
        return std::nullopt;
    }
    const std::string_view digits = takeWord(title);
    const char* const digitsEnd = digits.data() + digits.size();
    int number = 0;
    const auto [parsed, fault] = std::from_chars(digits.data(), digitsEnd, number);
    if (fault != std::errc{} || parsed != digitsEnd || number < 0 || number >= section->count) {
        error = formatted("write [%s 0] to [%s %d], optionally followed by a name",
                          section->name.data(), section->name.data(), section->count - 1);
        return std::nullopt;
    }
    return Section{section->firstPage + number, trimmed(title)};
}
