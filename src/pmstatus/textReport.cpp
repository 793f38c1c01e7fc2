#include <algorithm>
#include <cmath>

#include "commandCatalogue.h"
#include "report.h"
#include "text.h"
#include "values.h"

namespace {

constexpr const char* NOTHING = "-";

/// Characters, not bytes: the degree sign has two.
std::size_t widthOf(const std::string& text)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

using Cells = std::vector<std::string>;

/// A row of the table, and the lines that stand below it.
struct TableRow {
    Cells cells;
    std::vector<std::string> notes;
};

/// The first two columns, number and name, and the last, the state, begin at one place; what stands
/// between them ends there.
std::string tableText(const std::vector<TableRow>& rows)
{
    std::vector<std::size_t> widths(rows.front().cells.size());
    for (const TableRow& row : rows) {
        for (std::size_t i = 0; i < widths.size(); ++i) {
            widths[i] = std::max(widths[i], widthOf(row.cells[i]));
        }
    }
    std::string text;
    for (const TableRow& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < widths.size(); ++i) {
            const std::string padding(widths[i] - widthOf(row.cells[i]), ' ');
            const bool isLeft = i == 1 || i + 1 == widths.size();
            line +=
                (i == 0 ? "" : "  ") + (isLeft ? row.cells[i] + padding : padding + row.cells[i]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
        for (const std::string& note : row.notes) {
            text += "      " + note + "\n";
        }
    }
    return text;
}

/// Green, yellow, red (ECMA-48), with the words unchanged.
std::string coloured(State state, const std::string& text, bool inColour)
{
    constexpr const char* COLOURS[] = {"\x1B[32m", "\x1B[33m", "\x1B[31m"};
    return inColour ? COLOURS[static_cast<int>(state)] + text + "\x1B[0m" : text;
}

std::string peakText(std::uint8_t code, std::optional<int> peak)
{
    return peak ? registerText(code, *peak) : NOTHING;
}

/// "10.560 V to 13.440 V"; a limit that is the factory's is a dash.
std::string limitsText(const Rail& rail, State state)
{
    std::string text;
    const std::vector<Limit> limits = limitsOf(rail);
    for (auto limit = limits.rbegin(); limit != limits.rend(); ++limit) {
        if (limit->state == state) {
            text += (text.empty() ? "" : " to ")
                    + (isSet(rail, *limit) ? registerText(limit->code, rail.value(limit->code))
                                           : NOTHING);
        }
    }
    return text;
}

std::string percentOff(int number, int nominal)
{
    char text[16];
    std::snprintf(text, sizeof(text), "%+.1f %%", 100.0 * (number - nominal) / nominal);
    return text;
}

std::vector<std::string> notesOf(const RailReport& report)
{
    std::vector<std::string> notes;
    for (const RailComplaint& complaint : report.complaints) {
        notes.push_back(complaint.text);
    }
    if (unknownBits(*report.rail) != 0) {
        const std::uint8_t code =
            report.rail->isChannel() ? StatusVout::CODE : StatusTemperature::CODE;
        notes.push_back(catalogue::find(code)->name.text
                        + (" has bits whose meaning is not known: "
                           + registerText(code, unknownBits(*report.rail))));
    }
    const auto specific = report.rail->registers.find(StatusMfrSpecific::CODE);
    if (specific != report.rail->registers.end() && specific->second != 0) {
        notes.push_back("STATUS_MFR_SPECIFIC "
                        + registerText(StatusMfrSpecific::CODE, specific->second)
                        + ", whose bits are not known for this chip");
    }
    return notes;
}

TableRow supplyRow(const RailReport& report, bool inColour)
{
    const Rail& rail = *report.rail;
    const auto nominal = rail.nominal();
    return {{std::to_string(rail.page), boardName(rail.page),
             registerText(ReadVout::CODE, rail.reading()),
             nominal ? percentOff(rail.reading(), *nominal) : NOTHING,
             peakText(MfrVoutMin::CODE, rail.lowest()), peakText(MfrVoutPeak::CODE, rail.highest()),
             limitsText(rail, State::WARNING), limitsText(rail, State::FAULT),
             coloured(report.state(), stateName(report.state()), inColour)},
            notesOf(report)};
}

TableRow sensorRow(const RailReport& report, bool inColour)
{
    const Rail& rail = *report.rail;
    const std::string reading = rail.reading() == FAULTY_SENSOR ? "faulty"
                                : rail.reading() == DISABLED_SENSOR
                                    ? "0.00 °C or disabled"
                                    : registerText(ReadTemperature::CODE, rail.reading());
    return {{std::to_string(sensorNumber(rail.page)), boardName(rail.page), reading,
             peakText(MfrTemperaturePeak::CODE, rail.highest()), limitsText(rail, State::WARNING),
             limitsText(rail, State::FAULT),
             coloured(report.state(), stateName(report.state()), inColour)},
            notesOf(report)};
}

/// "STATUS_WORD 0x0802 (power good negated, communication)".
std::string statusText(const char* name, const std::string& number,
                       const std::vector<std::string>& bits)
{
    std::string words;
    for (const std::string& bit : bits) {
        words += (words.empty() ? " (" : ", ") + bit;
    }
    return name + (" " + number) + words + (words.empty() ? "" : ")") + "\n";
}

std::string deviceText(const ChipState& chip)
{
    const auto number = [&](std::uint8_t code) { return registerText(code, chip.device.at(code)); };
    std::string text =
        "MAX34460, model " + registerText(MfrModel::CODE, chip.model) + ", settings "
        + chip.settingsVersion + "\n"
        + statusText("STATUS_WORD", number(StatusWord::CODE), statusWordNames(chip.statusWord()))
        + statusText("STATUS_CML", number(StatusCML::CODE),
                     statusCmlNames(static_cast<unsigned int>(chip.device.at(StatusCML::CODE))))
        + "STATUS_MFR_SPECIFIC " + number(StatusMfrSpecific::CODE) + "\n";
    if (chip.device.at(WriteProtect::CODE) != 0) {
        text += "WRITE_PROTECT " + number(WriteProtect::CODE)
                + ": the chip ignores writes to its settings\n";
    }
    return text;
}

/// A heading and a line for each; nothing where there is none.
std::string crossingsText(const StatusReport& report, const char* heading,
                          const std::vector<Crossing>& crossings, bool withEntries)
{
    std::string text;
    for (const Crossing& crossing : crossings) {
        text += "  " + std::string(stateName(crossing.state)) + ": " + report.describe(crossing);
        const std::string& file = report.files[static_cast<std::size_t>(crossing.file) - 1];
        if (!withEntries) {
            text += report.files.size() > 1 ? ", with " + file : "";
        } else {
            text += formatted(", from entry %d (%s:%u) to %d (%s:%u)", crossing.firstIndex,
                              file.c_str(), crossing.firstLine, crossing.lastIndex, file.c_str(),
                              crossing.lastLine);
        }
        text += "\n";
    }
    return text.empty() ? "" : heading + text;
}

std::string forecastText(const StatusReport& report)
{
    const Forecast& found = *report.forecast;
    std::string text =
        crossingsText(report, "At the end:\n", found.atEnd, false)
        + crossingsText(report,
                        "Beyond a limit while it is written, but not at the end; may trip, if a "
                        "measurement falls into it (every 5 ms, as known from siblings):\n",
                        found.whileWritten, true)
        + crossingsText(report, "Peaks that only the new limits would have noticed:\n",
                        found.sincePeaks, false);
    for (const Remark& remark : found.remarks) {
        const std::string& file = report.files[static_cast<std::size_t>(remark.file) - 1];
        text += file + ":" + std::to_string(remark.line) + ": "
                + (remark.state == State::WARNING ? "warning: " : "") + remark.text + "\n";
    }
    if (found.idle > 0) {
        text += std::to_string(found.idle) + (found.idle == 1 ? " supply does" : " supplies do")
                + " not run; whether they would be too low is not judged\n";
    }
    return text;
}

} // namespace

std::string textReport(const StatusReport& report, bool inColour)
{
    std::string text = deviceText(*report.chip);
    if (!report.supplies.empty()) {
        std::vector<TableRow> rows = {{{"channel", "", "now", "off nominal", "lowest", "highest",
                                        "warning limits", "fault limits", "state"},
                                       {}}};
        for (const RailReport& supply : report.supplies) {
            rows.push_back(supplyRow(supply, inColour));
        }
        text += "\n" + tableText(rows);
    }
    if (!report.sensors.empty()) {
        std::vector<TableRow> rows = {
            {{"sensor", "", "now", "highest", "warning limit", "fault limit", "state"}, {}}};
        for (const RailReport& sensor : report.sensors) {
            rows.push_back(sensorRow(sensor, inColour));
        }
        text += "\n" + tableText(rows);
    }
    if (report.forecast) {
        const std::string said = forecastText(report);
        text += (said.empty() ? "" : "\n") + said;
    }
    return text + "\n" + coloured(report.state(), report.summary(), inColour) + "\n";
}
