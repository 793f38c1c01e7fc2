#include "diff.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <span>
#include <tuple>
#include <vector>

#include "loadFile.h"
#include "messages.h"
#include "pageSettings.h"
#include "pmFile.h"
#include "text.h"
#include "values.h"

using catalogue::Kind;

namespace {

/// The order in which differences are shown.
enum class Group { VERSION, SETTINGS, IDENTITY };

/// A register: group, page, command code. Entries of unknown codes are distinguished by their
/// bytes.
using Key = std::tuple<Group, int, unsigned int, std::string>;

/// What entries set; of a register that they set twice, the last.
using Registers = std::map<Key, const Entry*>;

/// The entries of a file that are compared, in its order.
using Entries = std::vector<const Entry*>;

bool isSetting(const Entry& entry)
{
    return isAccessible(entry) && entry.row->kind == Kind::SETTING;
}

/// Whether what is written before and after the entry may have another effect than the other way
/// round.
bool isState(const Entry& entry)
{
    return isWritten(entry) && !entry.selectsPage() && entry.row->kind != Kind::SETTING;
}

/// All but actions and, if settings alone are compared, what is none. That is told.
Entries findCompared(const PmFile& file, bool settingsAlone)
{
    Entries compared;
    for (const Entry& entry : file.entries) {
        const bool isAction = entry.row != nullptr && entry.row->kind == Kind::ACTION;
        if (isAction) {
            tell(file.name, entry.line,
                 commandName(entry) + " is not compared: it is an action, which pmadmin ignores");
        } else if (settingsAlone && !entry.selectsPage() && !isSetting(entry)) {
            tell(file.name, entry.line,
                 registerName(entry) + " is not compared: it is not a setting");
        } else {
            compared.push_back(&entry);
        }
    }
    return compared;
}

Registers findRegisters(std::span<const Entry* const> entries)
{
    Registers registers;
    for (const Entry* entry : entries) {
        if (entry->selectsPage()) {
            continue;
        }
        const Group group = entry->code == MfrDate::CODE ? Group::VERSION
                            : isIdentity(*entry)         ? Group::IDENTITY
                                                         : Group::SETTINGS;
        const std::string bytes = entry->row == nullptr ? hexBytes(entry->data) : "";
        registers[{group, registerPage(*entry), entry->code, bytes}] = entry;
    }
    return registers;
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

/// The entry of a register, or null.
const Entry* find(const Registers& registers, const Key& key)
{
    const auto found = registers.find(key);
    return found == registers.end() ? nullptr : found->second;
}

bool isSame(const Entry* one, const Entry* other)
{
    return one == nullptr || other == nullptr
               ? one == other
               : one->row == nullptr || std::ranges::equal(one->value(), other->value());
}

bool isSameStep(const Entry* one, const Entry* other)
{
    return one->code == other->code && registerPage(*one) == registerPage(*other)
           && isSame(one, other);
}

/// Where two files part, and what a file does instead that does nothing there.
struct Parting {
    const Entry* before; ///< null: nothing
    const Entry* after;
    const char* instead;
};

/// A register that both files leave alike, but not where their first states act on it.
std::optional<Parting> findEarlierParting(const Registers& oldBegin, const Registers& newBegin,
                                          const Entries& before, const Entries& after)
{
    const Registers newRegisters = findRegisters(after);
    for (const auto& [key, entry] : findRegisters(before)) {
        const Parting parting{find(oldBegin, key), find(newBegin, key), "does so later"};
        if (isSame(entry, find(newRegisters, key)) && !isSame(parting.before, parting.after)) {
            return parting;
        }
    }
    return std::nullopt;
}

/// From the first state on all that is written has to come in the same order. What is set before it
/// may come in any, but where it is set again later it has to be the same.
std::optional<Parting> findParting(const Entries& before, const Entries& after)
{
    const auto isStep = [](const Entry* entry) { return isWritten(*entry); };
    const auto isFirst = [](const Entry* entry) { return isState(*entry); };
    const auto oldFirst = std::ranges::find_if(before, isFirst);
    const auto newFirst = std::ranges::find_if(after, isFirst);
    if (oldFirst == before.end() && newFirst == after.end()) {
        return std::nullopt;
    }
    Entries oldSteps;
    Entries newSteps;
    std::copy_if(oldFirst, before.end(), std::back_inserter(oldSteps), isStep);
    std::copy_if(newFirst, after.end(), std::back_inserter(newSteps), isStep);
    const auto [was, is] = std::ranges::mismatch(oldSteps, newSteps, isSameStep);
    if (was == oldSteps.end() && is == newSteps.end()) {
        return findEarlierParting(findRegisters({before.begin(), oldFirst}),
                                  findRegisters({after.begin(), newFirst}), before, after);
    }
    return Parting{was == oldSteps.end() ? nullptr : *was, is == newSteps.end() ? nullptr : *is,
                   "ends"};
}

std::string stepOf(const Entry* entry, const std::string& path, const char* instead)
{
    if (entry == nullptr) {
        return printable(path) + " " + instead;
    }
    const std::string does =
        entry->selectsPage()
            ? "selects " + placeName(entry->page)
            : formatted("sets %s to %s", registerName(*entry).c_str(), valueOf(*entry).c_str());
    return formatted("line %u of %s %s", entry->line, printable(path).c_str(), does.c_str());
}

} // namespace

int diff(const std::string& oldPath, const std::string& newPath, bool settingsAlone)
{
    const auto oldFile = loadOrTell(oldPath);
    const auto newFile = oldFile == nullptr ? nullptr : loadOrTell(newPath);
    if (newFile == nullptr) {
        return STATUS_TROUBLE;
    }
    const Entries oldEntries = findCompared(*oldFile, settingsAlone);
    const Entries newEntries = findCompared(*newFile, settingsAlone);
    const Registers before = findRegisters(oldEntries);
    const Registers after = findRegisters(newEntries);
    Registers all = before;
    all.insert(after.begin(), after.end());
    bool same = true;
    for (const auto& [key, entry] : all) {
        const Entry* const was = find(before, key);
        const Entry* const is = find(after, key);
        if (isSame(was, is)) {
            continue;
        }
        same = false;
        print(is == nullptr    ? only(key, *entry, oldPath)
              : was == nullptr ? only(key, *entry, newPath)
                               : placeOf(key, *is) + valueOf(*was) + " -> " + valueOf(*is) + "\n");
    }
    if (const auto parting = findParting(oldEntries, newEntries)) {
        same = false;
        print("order: " + stepOf(parting->before, oldPath, parting->instead) + "; "
              + stepOf(parting->after, newPath, parting->instead) + "\n");
    }
    return finishOutput(same ? STATUS_GOOD : STATUS_DIFFERENT);
}
