#include "text.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <iterator>

namespace {

/// The first character of a UTF-8 text. Its length in bytes is 0 if the text is empty or does not
/// begin with valid UTF-8.
struct Character {
    std::size_t length;
    char32_t code;
};

Character firstCharacter(std::string_view text)
{
    /// The smallest code of each length: a longer form than needed is not valid UTF-8.
    constexpr char32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    constexpr char32_t LARGEST = 0x10FFFF;
    constexpr Character NONE = {0, 0};
    const unsigned int first = text.empty() ? 0xFF : static_cast<unsigned char>(text[0]);
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC0 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF8 ? 4
                                              : 0;
    if (length == 0 || length > text.size()) {
        return NONE;
    }
    char32_t code = length == 1 ? first : first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned int next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) {
            return NONE;
        }
        code = code << 6 | (next & 0x3F);
    }
    const bool isHalfOfPair = code >= 0xD800 && code <= 0xDFFF; // of UTF-16
    return code < SMALLEST[length] || code > LARGEST || isHalfOfPair ? NONE
                                                                     : Character{length, code};
}

/// Whether the character is not seen, but changes how others are.
bool isControl(char32_t code)
{
    /// Ranges of Unicode: C0 and C1 controls, then what Bidi_Control has, with the separators of
    /// lines and paragraphs between.
    constexpr char32_t RANGES[][2] = {{0, 0x1F},        {0x7F, 0x9F},     {0x61C, 0x61C},
                                      {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};
    return std::any_of(std::begin(RANGES), std::end(RANGES),
                       [code](const auto& range) { return code >= range[0] && code <= range[1]; });
}

} // namespace

std::string_view trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    return text.substr(0, text.find_last_not_of(BLANKS) + 1);
}

// A C function's list of arguments is what the compiler can check. NOLINTNEXTLINE(cert-dcl50-cpp)
std::optional<unsigned int> takeNumber(std::string_view text, unsigned int lowest,
                                       unsigned int highest)
{
    unsigned int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    return isNumber && number >= lowest && number <= highest ? std::optional(number) : std::nullopt;
}

std::string joined(const std::vector<std::string>& texts)
{
    std::string all;
    for (const std::string& text : texts) {
        all += (all.empty() ? "" : ", ") + text;
    }
    return all;
}

std::string counted(std::size_t number, const char* one, const char* several)
{
    return formatted("%zu %s", number, number == 1 ? one : several);
}

// So that the compiler checks the format. NOLINTNEXTLINE(cert-dcl50-cpp)
std::string formatted(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, arguments)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    return text;
}

std::string timeText()
{
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    char text[32] = "";
    if (localtime_r(&now, &local) != nullptr) {
        std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S%z", &local);
    }
    return text;
}

std::string printable(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        const auto [length, code] = firstCharacter(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(length, 1));
        text.remove_prefix(bytes.size());
        if (length > 0 && !isControl(code)) {
            shown += bytes;
            continue;
        }
        for (const char byte : bytes) {
            shown +=
                formatted("\\x%02X", static_cast<unsigned int>(static_cast<unsigned char>(byte)));
        }
    }
    return shown;
}

std::string jsonString(std::string_view text)
{
    std::string json = "\"";
    while (!text.empty()) {
        const auto [length, code] = firstCharacter(text);
        if (length == 0) {
            json += "\\ufffd";
        } else if (isControl(code)) { // all of these are below U+10000
            json += formatted("\\u%04x", static_cast<unsigned int>(code));
        } else {
            json += code == '"' || code == '\\' ? "\\" : "";
            json += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return json + "\"";
}
