#include "diff.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "messages.h"
#include "pmFile.h"
#include "text.h"
#include "values.h"

namespace {

/// In what order differences are shown.
enum class Group { VERSION, SETTINGS, IDENTITY };

/// A register: group, page, command code. Entries of unknown codes are one by their bytes, too.
using Key = std::tuple<Group, int, unsigned int, std::string>;

/// What a file sets; of a register that it sets twice, the last.
using Settings = std::map<Key, const Entry*>;

Settings findSettings(const PmFile& file)
{
    Settings settings;
    for (const Entry& entry : file.entries) {
        if (entry.isPage()) {
            continue;
        }
        const Group group = entry.code == MfrDate::CODE ? Group::VERSION
                            : isIdentity(entry)         ? Group::IDENTITY
                                                        : Group::SETTINGS;
        const std::string bytes = entry.row == nullptr ? hexBytes(entry.data) : "";
        settings[{group, registerPage(entry), entry.code, bytes}] = &entry;
    }
    return settings;
}

std::string placeOf(const Key& key, const Entry& entry)
{
    const std::string place = std::get<Group>(key) == Group::VERSION ? "version"
                              : std::get<Group>(key) == Group::IDENTITY
                                  ? "identity"
                                  : pageName(registerPage(entry));
    return place + ": " + commandName(entry) + ": ";
}

std::string valueOf(const Entry& entry)
{
    return entry.row == nullptr ? hexBytes(entry.data) : valueText(*entry.row, entry.value());
}

std::string only(const Key& key, const Entry& entry, const std::string& path)
{
    const std::string value = valueOf(entry);
    return placeOf(key, entry) + "only in " + printable(path) + (value.empty() ? "" : ": " + value)
           + "\n";
}

} // namespace

int diff(const std::string& oldPath, const std::string& newPath)
{
    const auto oldFile = loadFile(oldPath);
    const auto newFile = oldFile == nullptr ? nullptr : loadFile(newPath);
    if (newFile == nullptr) {
        return STATUS_TROUBLE;
    }
    const Settings before = findSettings(*oldFile);
    const Settings after = findSettings(*newFile);
    Settings all = before;
    all.insert(after.begin(), after.end());
    bool same = true;
    for (const auto& [key, entry] : all) {
        const auto was = before.find(key);
        const auto is = after.find(key);
        if (is == after.end()) {
            print(only(key, *entry, oldPath));
        } else if (was == before.end()) {
            print(only(key, *entry, newPath));
        } else if (entry->row != nullptr
                   && !std::ranges::equal(was->second->value(), is->second->value())) {
            print(placeOf(key, *entry) + valueOf(*was->second) + " -> " + valueOf(*is->second)
                  + "\n");
        } else {
            continue;
        }
        same = false;
    }
    return finishOutput(same ? STATUS_GOOD : STATUS_DIFFERENT);
}
