#include "report.h"

#include <cstdio>
#include <string_view>

#include "text.h"

namespace {

void show(const std::string& text)
{
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
    std::clearerr(stdout); // a reader may come back, such as a terminal
}

/// The lines of a text, each behind blanks, as they do nothing to a terminal.
std::string indented(std::string_view text)
{
    std::string lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        lines += "    " + printable(text.substr(0, end)) + "\n";
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

} // namespace

Ended RunReport::step(const std::string& title, const Words& command, Shows shows)
{
    const std::string begin = title + ": " + typed(command) + ": ";
    show(begin);
    Ended ended = runProgram(command);
    const std::string end = endInWords(ended.status) + "\n" + indented(ended.errors)
                            + (shows == Shows::ALL ? indented(ended.output) : "");
    show(end);
    m_text += begin + end;
    return ended;
}

void RunReport::tell(const std::string& line)
{
    show(line + "\n");
    m_text += line + "\n";
}
