// What pmstatus says of a chip, whatever the form: each channel and sensor that is used with its
// complaints, and the line that sums them up. Text, JSON and metrics are made from it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "chipState.h"
#include "forecast.h"

/// What is said of a channel or a sensor.
struct RailReport {
    const Rail* rail;
    std::vector<RailComplaint> complaints;

    State state() const { return worstOf(complaints); }
};

struct StatusReport {
    const ChipState* chip;
    std::vector<RailReport> supplies;
    std::vector<RailReport> sensors;
    std::vector<std::string> files;   ///< that were forecast, by their paths
    std::optional<Forecast> forecast; ///< of these files

    /// Of what was asked for: the supplies as they are, or the forecast.
    State state() const;

    /// "channel 3 CORE_2V5: 2.498 V is above VOUT_OV_FAULT_LIMIT 2.400 V".
    std::string describe(const Crossing& crossing) const;

    /// The last line: "12 supplies and 5 sensors: all good", or what is worst.
    std::string summary() const;

private:
    std::string forecastSummary() const;
};

/// Judges what is used, or with `all` everything that was read.
StatusReport makeReport(const ChipState& chip, bool all);

/// The latched bits of channels, sensors and device in words, empty if there are none.
std::string latchedText(const ChipState& chip);

/// The bits of STATUS_WORD in words; those of which no meaning is known by their number.
std::vector<std::string> statusWordNames(unsigned int word);

/// The bits of STATUS_CML in words, likewise.
std::vector<std::string> statusCmlNames(unsigned int byte);

/// For people; in colour if it goes to a terminal.
std::string textReport(const StatusReport& report, bool inColour);

/// One JSON object in one line, without a line end; it begins with the time if that is given.
std::string jsonReport(const StatusReport& report, const std::string& time);

/// The metric that says whether the chip could be read; alone, if it could not.
std::string prometheusUp(bool isUp);

/// The text format of Prometheus, for node_exporter's textfile collector.
std::string prometheusReport(const StatusReport& report);
