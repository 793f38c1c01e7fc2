// What is wrong with a supply or a sensor: what the chip has latched, and what it measures beside
// the limits that it holds. Used for the chip as it is and for what a file would make of it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// In the order of weight; the numbers are those of exit statuses and metrics.
enum class State : std::uint8_t { GOOD = 0, WARNING = 1, FAULT = 2 };

/// "good", "warning", "fault".
const char* stateName(State state);

/// Registers of one page, a channel or a sensor, and what was measured there.
struct Rail {
    int page;
    bool isExpectedOff = false;
    bool isConfigured = false; ///< whether a setting is not the factory's
    /// In mV or 0.01 °C: one, or two of which the second was taken 5 ms after the first because
    /// that was beyond a limit without its status bit.
    std::vector<int> readings;
    std::map<std::uint8_t, int> registers; ///< number by command code; words are signed

    bool isChannel() const;
    int reading() const { return readings.back(); }
    /// The number in a register that was read.
    int value(std::uint8_t code) const { return registers.at(code); }
    /// Peaks since they were reset, if there are any; a sensor has only a highest one.
    std::optional<int> lowest() const;
    std::optional<int> highest() const;
    /// MFR_CHANNEL_NOMINAL, if it is set and the model gives it back.
    std::optional<int> nominal() const;
    /// STATUS_VOUT or STATUS_TEMPERATURE.
    std::uint8_t status() const;
    /// Whether a supply has come up: it reads above 0 and not below its undervoltage fault limit.
    bool isRunning() const;
};

/// A limit and the status bit that the chip latches beyond it (PMBus standard, STATUS_VOUT and
/// STATUS_TEMPERATURE).
struct Limit {
    std::uint8_t code; ///< of its register
    std::uint8_t bit;
    bool isUpper;
    State state;         ///< what being beyond it means
    const char* name;    ///< "overvoltage fault"
    const char* keyword; ///< "ov_fault"
};

/// The limits of a channel, or those of a sensor, from the highest to the lowest.
std::vector<Limit> limitsOf(const Rail& rail);

/// Whether the chip holds another limit than the factory's, which limits nothing.
bool isSet(const Rail& rail, const Limit& limit);

/// Whether the number is strictly beyond a limit that is set.
bool isBeyond(const Rail& rail, const Limit& limit, int number);

/// "2.498 V", "41.5 °C", "0x1105": a number as its register means it.
std::string registerText(std::uint8_t code, int number);

/// Whether the reading is beyond a limit without its status bit, unexpectedly: once is no proof.
bool needsSecondReading(const Rail& rail);

/// Whether the sensor's reading is a temperature: a faulty and a disabled sensor give none.
bool isTemperature(int reading);

/// READ_TEMPERATURE of a faulty and of a disabled sensor (data sheets of siblings).
inline constexpr int FAULTY_SENSOR = 0x7FFF;
inline constexpr int DISABLED_SENSOR = 0x0000;

struct RailComplaint {
    State state;
    std::string text;
};

/// All complaints about a channel or sensor.
std::vector<RailComplaint> judge(const Rail& rail);

/// The latched bits of which a meaning is known, and those of which none is.
std::uint8_t knownBits(const Rail& rail);
std::uint8_t unknownBits(const Rail& rail);

/// The faults and warnings that the chip has latched.
std::vector<std::string> latchedNames(const Rail& rail);

/// The state of the worst complaint; GOOD if there is none.
State worstOf(const std::vector<RailComplaint>& complaints);
