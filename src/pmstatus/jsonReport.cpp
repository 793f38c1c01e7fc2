#include <nlohmann/json.hpp>

#include "commandCatalogue.h"
#include "report.h"
#include "values.h"

// As in pmfile show --json: keys in the order in which they are written.
using Json = nlohmann::ordered_json;

namespace {

constexpr double MILLI = 1000;
constexpr double CENTI = 100;

Json nameOf(const RailReport& report)
{
    const std::string name = boardName(report.rail->page);
    return name.empty() ? Json(nullptr) : Json(name);
}

/// A number of `steps` to the unit.
Json orNull(std::optional<int> number, double steps)
{
    return number ? Json(*number / steps) : Json(nullptr);
}

Json textsOf(const std::vector<RailComplaint>& complaints)
{
    Json texts = Json::array();
    for (const RailComplaint& complaint : complaints) {
        texts.push_back(complaint.text);
    }
    return texts;
}

Json supplyObject(const RailReport& report)
{
    const Rail& rail = *report.rail;
    return {{"channel", rail.page},
            {"name", nameOf(report)},
            {"volts", rail.reading() / MILLI},
            {"nominal", orNull(rail.nominal(), MILLI)},
            {"lowest", orNull(rail.lowest(), MILLI)},
            {"highest", orNull(rail.highest(), MILLI)},
            {"running", rail.isRunning()},
            {"state", stateName(report.state())},
            {"complaints", textsOf(report.complaints)}};
}

Json sensorObject(const RailReport& report)
{
    const Rail& rail = *report.rail;
    const bool isMeasured = isTemperature(rail.reading());
    return {{"sensor", sensorNumber(rail.page)},
            {"name", nameOf(report)},
            {"celsius", isMeasured ? Json(rail.reading() / CENTI) : Json(nullptr)},
            {"highest", orNull(rail.highest(), CENTI)},
            {"state", stateName(report.state())},
            {"complaints", textsOf(report.complaints)}};
}

Json crossingObject(const Crossing& crossing, bool withEntries)
{
    const catalogue::Row& limit = *catalogue::find(crossing.limit);
    const bool isChannel = Command::isChannelPage(static_cast<std::uint8_t>(crossing.page));
    const double steps = limit.format == catalogue::Format::RATIO ? RATIO_ONE
                         : isChannel                              ? MILLI
                                                                  : CENTI;
    Json object = {
        {isChannel ? "channel" : "sensor", isChannel ? crossing.page : sensorNumber(crossing.page)},
        {"limit", limit.name.text},
        {"value", crossing.value / steps},
        {"bound", crossing.bound / steps},
        {"state", stateName(crossing.state)},
        {"file", crossing.file}};
    if (withEntries) {
        object["first"] = crossing.firstIndex;
        object["last"] = crossing.lastIndex;
    }
    return object;
}

Json crossingList(const std::vector<Crossing>& crossings, bool withEntries)
{
    Json list = Json::array();
    for (const Crossing& crossing : crossings) {
        list.push_back(crossingObject(crossing, withEntries));
    }
    return list;
}

} // namespace

std::string jsonReport(const StatusReport& report, const std::string& time)
{
    const ChipState& chip = *report.chip;
    Json object = Json::object();
    if (!time.empty()) {
        object["time"] = time;
    }
    object["settings"] = chip.settingsVersion;
    object["model"] = chip.model;
    object["state"] = stateName(report.state());
    object["statusWord"] = chip.statusWord();
    object["statusCml"] = chip.device.at(StatusCML::CODE);
    object["statusMfrSpecific"] = chip.device.at(StatusMfrSpecific::CODE);
    object["writeProtect"] = chip.device.at(WriteProtect::CODE);
    object["supplies"] = Json::array();
    object["sensors"] = Json::array();
    for (const RailReport& supply : report.supplies) {
        object["supplies"].push_back(supplyObject(supply));
    }
    for (const RailReport& sensor : report.sensors) {
        object["sensors"].push_back(sensorObject(sensor));
    }
    if (report.forecast) {
        object["atEnd"] = crossingList(report.forecast->atEnd, false);
        object["whileWritten"] = crossingList(report.forecast->whileWritten, true);
        object["sincePeaks"] = crossingList(report.forecast->sincePeaks, false);
        object["remarks"] = Json::array();
        for (const Remark& remark : report.forecast->remarks) {
            object["remarks"].push_back({{"file", remark.file},
                                         {"line", remark.line},
                                         {"state", stateName(remark.state)},
                                         {"text", remark.text}});
        }
        object["notRunning"] = report.forecast->idle;
    }
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}
