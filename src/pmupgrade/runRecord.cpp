#include "runRecord.h"

#include <unistd.h>

#include <cerrno>

#include "json.h"
#include "pages.h"
#include "runFolder.h"
#include "textFile.h"

namespace {

std::string take(const Json& json, const char* name)
{
    return textOf(json, name).value_or("");
}

Json jsonOf(const Identity& identity)
{
    return {{"serial", identity.serial}, {"location", identity.location}};
}

Identity takeIdentity(const Json& json)
{
    return {take(json, "serial"), take(json, "location")};
}

} // namespace

Found readRecord(const std::string& path, RunRecord& record, std::string& error)
{
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) {
        return Found::NOTHING;
    }
    std::string text;
    if (!readText(path, text, error)) {
        return Found::BROKEN;
    }
    const Json json = parseJson(text);
    if (!textOf(json, "folder") || !textOf(json, "file") || !numberOf(json, "status")
        || !memberOf(json, "states").is_array()) {
        error = path + ": is not what pmupgrade writes there";
        return Found::BROKEN;
    }
    record = {take(json, "folder"),
              take(json, "date"),
              flagOf(json, "isReturn").value_or(false),
              take(json, "file"),
              take(json, "backup"),
              take(json, "fileVersion"),
              take(json, "backupVersion"),
              static_cast<int>(numberOf(json, "model").value_or(0)),
              takeIdentity(memberOf(json, "chip")),
              takeIdentity(memberOf(json, "fileIdentity")),
              {},
              flagOf(json, "hasStoreBegun").value_or(true),
              static_cast<int>(*numberOf(json, "status"))};
    for (const Json& rail : memberOf(json, "states")) {
        record.states[static_cast<int>(numberOf(rail, "page").value_or(NO_PAGE))] = {
            take(rail, "place"), take(rail, "state"), flagOf(rail, "runs").value_or(false),
            take(rail, "now")};
    }
    return Found::RECORD;
}

bool writeRecord(const std::string& path, const RunRecord& record, std::string& error)
{
    Json states = Json::array();
    for (const auto& [page, rail] : record.states) {
        states.push_back({{"page", page},
                          {"place", rail.place},
                          {"state", rail.state},
                          {"runs", rail.runs},
                          {"now", rail.now}});
    }
    const Json json = {{"folder", record.folder},
                       {"date", record.date},
                       {"isReturn", record.isReturn},
                       {"file", record.file},
                       {"backup", record.backup},
                       {"fileVersion", record.fileVersion},
                       {"backupVersion", record.backupVersion},
                       {"model", record.model},
                       {"chip", jsonOf(record.chip)},
                       {"fileIdentity", jsonOf(record.fileIdentity)},
                       {"states", states},
                       {"hasStoreBegun", record.hasStoreBegun},
                       {"status", record.status}};
    return writeSynced(path, textOfJson(json), error);
}
