#include "names.h"

#include "listLine.h"
#include "pmDataFile.h"
#include "text.h"
#include "textFile.h"

bool readNames(const std::string& path, Names& names, std::string& error)
{
    std::string list;
    if (!readText(path, list, error)) {
        return false;
    }
    for (pmDataFile::Lines lines(withoutByteOrderMark(list)); lines.next();) {
        const std::string_view line = trimmed(withoutComment(lines.line()));
        if (!line.starts_with('[') || parseTemplate(line)) {
            continue;
        }
        std::string mistake;
        const auto section = parseSection(line, mistake);
        if (!section) {
            error = formatted("%s:%u: %s", path.c_str(), lines.number(), mistake.c_str());
            return false;
        }
        if (!section->name.empty()) {
            names[section->page] = printable(section->name);
        }
    }
    return true;
}
