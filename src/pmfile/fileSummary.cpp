#include "fileSummary.h"

#include "pageSettings.h"

using catalogue::Kind;

namespace {

/// Whether a write takes effect on the supplies at once.
bool actsAtOnce(const Entry& entry)
{
    return entry.code == VoutScaleMonitor::CODE || entry.code == OnOffConfig::CODE
           || entry.code == MfrMode::CODE || entry.code == Operation::CODE;
}

} // namespace

std::vector<std::string> marksOf(const Entry& entry)
{
    if (entry.row == nullptr) {
        return {"unknown, left out"};
    }
    if (entry.row->kind == Kind::ACTION) {
        return {"ignored"};
    }
    std::vector<std::string> marks;
    if (!isWritten(entry)) {
        marks.emplace_back("can't be written");
    } else if (!entry.selectsPage() && entry.row->kind != Kind::SETTING) {
        marks.emplace_back("not a setting");
    }
    if (isIdentity(entry)) {
        marks.emplace_back("identity");
    }
    if (actsAtOnce(entry)) {
        marks.emplace_back("acts at once");
    }
    return marks;
}

Summary summarise(const PmFile& file)
{
    Summary summary;
    const auto settings = findSettings(file);
    for (const Entry& entry : file.entries) {
        summary.written += isWritten(entry) ? 1 : 0;
        if (entry.isValue() && !entry.selectsPage() && catalogue::isPage(entry.page)
            && !summary.unused.contains(entry.page)) {
            const auto found = settings.find(entry.page);
            summary.unused[entry.page] =
                found != settings.end() && isUnused(entry.page, found->second);
        }
    }
    return summary;
}

bool isUnused(const Summary& summary, int page)
{
    const auto found = summary.unused.find(page);
    return found != summary.unused.end() && found->second;
}

const Entry* findVersion(const PmFile& file)
{
    const Entry* version = nullptr;
    for (const Entry& entry : file.entries) {
        version = entry.code == MfrDate::CODE ? &entry : version;
    }
    return version;
}
