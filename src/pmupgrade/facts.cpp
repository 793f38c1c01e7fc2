#include "facts.h"

#include "commandCatalogue.h"
#include "json.h"
#include "pages.h"
#include "text.h"
#include "values.h"

namespace {

int wholeOf(const Json& object, const char* name)
{
    return static_cast<int>(numberOf(object, name).value_or(0));
}

/// The page that an object is about; NO_PAGE if it is about none.
int pageOf(const Json& object)
{
    return numberOf(object, "channel")  ? wholeOf(object, "channel")
           : numberOf(object, "sensor") ? wholeOf(object, "sensor") + Command::FIRST_SENSOR_PAGE
                                        : NO_PAGE;
}

/// A voltage or temperature with its unit.
std::string inUnit(const Json& object, const char* name, bool isChannel)
{
    const auto number = numberOf(object, name);
    return !number ? "" : isChannel ? formatted("%.3f V", *number) : formatted("%g °C", *number);
}

bool takeRail(const Json& object, RailStates& rails)
{
    const int page = pageOf(object);
    const auto state = textOf(object, "state");
    if (page == NO_PAGE || !state) {
        return false;
    }
    const std::string name = textOf(object, "name").value_or("");
    const bool isChannel = numberOf(object, "channel").has_value();
    rails[page] = {pageNumberName(page) + (name.empty() ? "" : " " + printable(name)), *state,
                   flagOf(object, "running").value_or(false),
                   inUnit(object, isChannel ? "volts" : "celsius", isChannel)};
    return true;
}

/// What would be beyond a limit, in words.
std::string crossingText(const Json& object, const RailStates& rails, const char* when)
{
    const int page = pageOf(object);
    const auto rail = rails.find(page);
    const std::string limit = textOf(object, "limit").value_or("a limit");
    const bool isRatio = limit == catalogue::find(VoutScaleMonitor::CODE)->name.text;
    const bool isChannel = numberOf(object, "channel").has_value();
    return formatted("%s: %s: %s would be beyond %s %s %s",
                     textOf(object, "state").value_or("").c_str(),
                     (rail == rails.end() ? pageNumberName(page) : rail->second.place).c_str(),
                     isRatio ? "its ratio" : inUnit(object, "value", isChannel).c_str(),
                     limit.c_str(), inUnit(object, "bound", isChannel).c_str(), when);
}

void takeForecast(const Json& json, SupplyStates& states)
{
    constexpr std::pair<const char*, const char*> LISTS[] = {
        {"atEnd", "at the end"},
        {"whileWritten", "while it is written"},
        {"sincePeaks", "by its peak"}};
    for (const auto& [list, when] : LISTS) {
        for (const Json& crossing : memberOf(json, list)) {
            states.forecast.push_back(crossingText(crossing, states.rails, when));
            if (list == LISTS[0].first && textOf(crossing, "state") == "fault") {
                states.faultsAtEnd.insert(pageOf(crossing));
            }
        }
    }
    for (const Json& remark : memberOf(json, "remarks")) {
        states.forecast.push_back(textOf(remark, "state").value_or("") + ": "
                                  + printable(textOf(remark, "text").value_or("")));
    }
}

} // namespace

std::optional<SupplyStates> parseStates(const std::string& text)
{
    const Json json = parseJson(text);
    if (!memberOf(json, "supplies").is_array() || !memberOf(json, "sensors").is_array()) {
        return std::nullopt;
    }
    SupplyStates states{wholeOf(json, "model"), wholeOf(json, "writeProtect"), false, {}, {}, {}};
    for (const char* const list : {"supplies", "sensors"}) {
        for (const Json& object : memberOf(json, list)) {
            if (!takeRail(object, states.rails)) {
                return std::nullopt;
            }
        }
    }
    takeForecast(json, states);
    return states;
}

std::optional<FileFacts> parseFile(const std::string& text)
{
    const Json json = parseJson(text);
    if (!memberOf(json, "entries").is_array()) {
        return std::nullopt;
    }
    FileFacts facts{"without a version", std::nullopt, std::nullopt, std::nullopt, "", ""};
    if (const Json& version = memberOf(json, "version"); version.is_object()) {
        facts.version = formatted("%d.%d", wholeOf(version, "major"), wholeOf(version, "minor"));
        facts.hardware = wholeOf(version, "minimumHardware");
    }
    for (const Json& entry : memberOf(json, "entries")) {
        const int code = wholeOf(entry, "code");
        if (code == MfrSerial::CODE) {
            facts.serial = textOf(entry, "bytes");
            facts.serialText = textOf(entry, "value").value_or("");
        } else if (code == MfrLocation::CODE) {
            facts.location = textOf(entry, "bytes");
            facts.locationText = textOf(entry, "value").value_or("");
        }
    }
    return facts;
}

bool isBetween(const Identity& chip, const Identity& one, const Identity& other)
{
    return (chip.serial == one.serial || chip.serial == other.serial)
           && (chip.location == one.location || chip.location == other.location);
}

bool isFactory(const Identity& identity)
{
    const auto factoryBytes = [](std::uint8_t code) {
        return hexBytes(factoryValue(*catalogue::find(code)));
    };
    return identity.serial == factoryBytes(MfrSerial::CODE)
           && identity.location == factoryBytes(MfrLocation::CODE);
}
