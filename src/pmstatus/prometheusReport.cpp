#include <functional>

#include "commandCatalogue.h"
#include "report.h"

namespace {

constexpr double MILLI = 1000;
constexpr double CENTI = 100;

/// A label's value, quoted; names hold no line ends, the third character with an escape.
std::string labelValue(const std::string& text)
{
    std::string escaped = "\"";
    for (const char c : text) {
        if (c == '\\' || c == '"') {
            escaped += '\\';
        }
        escaped += c;
    }
    return escaped + "\"";
}

std::string numberText(double number)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.10g", number);
    return text;
}

std::string family(const char* name, const char* help)
{
    return std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " gauge\n";
}

/// The lines of a metric behind its family; a metric without lines is left out.
std::string withFamily(const char* name, const char* help, const std::string& lines)
{
    return lines.empty() ? "" : family(name, help) + lines;
}

std::string labelsOf(const RailReport& report)
{
    const int page = report.rail->page;
    return (report.rail->isChannel() ? "channel=\"" + std::to_string(page)
                                     : "sensor=\"" + std::to_string(sensorNumber(page)))
           + "\",name=" + labelValue(boardName(page));
}

using Value = std::function<std::optional<double>(const Rail& rail)>;

/// A metric of all supplies or sensors; those for which there is no value are left out.
std::string metric(const std::vector<RailReport>& rails, const char* name, const char* help,
                   const Value& value)
{
    std::string lines;
    for (const RailReport& report : rails) {
        if (const auto number = value(*report.rail)) {
            lines += name + ("{" + labelsOf(report)) + "} " + numberText(*number) + "\n";
        }
    }
    return withFamily(name, help, lines);
}

std::string limitMetric(const std::vector<RailReport>& rails, const char* name, const char* help,
                        double steps)
{
    std::string lines;
    for (const RailReport& report : rails) {
        for (const Limit& limit : limitsOf(*report.rail)) {
            if (isSet(*report.rail, limit)) {
                lines += name + ("{" + labelsOf(report)) + ",limit=\"" + limit.keyword + "\"} "
                         + numberText(report.rail->value(limit.code) / steps) + "\n";
            }
        }
    }
    return withFamily(name, help, lines);
}

std::string stateMetric(const std::vector<RailReport>& rails, const char* name, const char* help)
{
    std::string lines;
    for (const RailReport& report : rails) {
        lines += name + ("{" + labelsOf(report)) + "} "
                 + std::to_string(static_cast<int>(report.state())) + "\n";
    }
    return withFamily(name, help, lines);
}

/// A number of `steps` to the unit.
std::optional<double> orNothing(std::optional<int> number, double steps)
{
    return number ? std::optional(*number / steps) : std::nullopt;
}

std::string deviceMetric(const ChipState& chip, const char* name, const char* help,
                         std::uint8_t code)
{
    return family(name, help) + name + " "
           + std::to_string(static_cast<std::uint16_t>(chip.device.at(code))) + "\n";
}

} // namespace

std::string prometheusUp(bool isUp)
{
    return family("pm_up", "Whether the power monitor could be read.")
           + (isUp ? "pm_up 1\n" : "pm_up 0\n");
}

std::string prometheusReport(const StatusReport& report)
{
    const ChipState& chip = *report.chip;
    char model[8];
    std::snprintf(model, sizeof(model), "0x%02X", static_cast<unsigned int>(chip.model));
    std::string text =
        prometheusUp(true) + family("pm_info", "The settings in the chip and its model.")
        + "pm_info{settings=" + labelValue(chip.settingsVersion) + ",model=" + labelValue(model)
        + "} 1\n"
        + deviceMetric(chip, "pm_status_word", "STATUS_WORD of the device.", StatusWord::CODE)
        + deviceMetric(chip, "pm_status_cml", "STATUS_CML of the device.", StatusCML::CODE)
        + deviceMetric(chip, "pm_write_protect", "WRITE_PROTECT.", WriteProtect::CODE);

    const auto volts = [](const Rail& rail) { return rail.reading() / MILLI; };
    const auto lowest = [](const Rail& rail) { return orNothing(rail.lowest(), MILLI); };
    const auto highestVolts = [](const Rail& rail) { return orNothing(rail.highest(), MILLI); };
    const auto running = [](const Rail& rail) { return rail.isRunning() ? 1.0 : 0.0; };
    text += metric(report.supplies, "pm_supply_volts", "Measured voltage.", volts);
    const auto nominal = [](const Rail& rail) { return orNothing(rail.nominal(), MILLI); };
    text += metric(report.supplies, "pm_supply_nominal_volts", "Nominal voltage.", nominal)
            + metric(report.supplies, "pm_supply_lowest_volts",
                     "Lowest voltage since the peaks were reset.", lowest)
            + metric(report.supplies, "pm_supply_highest_volts",
                     "Highest voltage since the peaks were reset.", highestVolts)
            + limitMetric(report.supplies, "pm_supply_limit_volts",
                          "Limits that the chip holds; a factory limit is none.", MILLI)
            + metric(report.supplies, "pm_supply_running",
                     "Whether the voltage is above 0 and not below the undervoltage fault limit.",
                     running)
            + stateMetric(report.supplies, "pm_supply_state", "0 good, 1 warning, 2 fault.");

    const auto highestCelsius = [](const Rail& rail) { return orNothing(rail.highest(), CENTI); };
    const auto celsius = [](const Rail& rail) {
        return isTemperature(rail.reading()) ? std::optional(rail.reading() / CENTI) : std::nullopt;
    };
    text += metric(report.sensors, "pm_sensor_celsius",
                   "Measured temperature; a faulty or disabled sensor has none.", celsius)
            + metric(report.sensors, "pm_sensor_highest_celsius",
                     "Highest temperature since the peaks were reset.", highestCelsius)
            + limitMetric(report.sensors, "pm_sensor_limit_celsius",
                          "Limits that the chip holds; a factory limit is none.", CENTI)
            + stateMetric(report.sensors, "pm_sensor_state", "0 good, 1 warning, 2 fault.");
    return text;
}
