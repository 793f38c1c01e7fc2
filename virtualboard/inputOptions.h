// What may be said of supplies and sensors on the command line. Used by the launcher's options and
// by the fault rules.
#pragma once

#include <cstdint>
#include <string>

#include "supplies.h"

namespace virtualboard {

inline constexpr double VOLTS_MAX = 1000;

/// What --supply or --sensor sets.
struct InputOption {
    enum class Kind : std::uint8_t { SUPPLY, ALL_NOMINAL, SENSOR, NONE, ALL_NONE };
    Kind kind = Kind::NONE;
    int page = 0;                 ///< of the one that is meant
    std::uint32_t microvolts = 0; ///< SUPPLY
    std::uint32_t divider = 0;    ///< SUPPLY; 0: what VOUT_SCALE_MONITOR stands for
    std::int16_t reading = 0;     ///< SENSOR
};

/// N=VOLTS[@RATIO], N=none, all=nominal or all=none; false if the text is nothing of these.
bool parseSupplyOption(const std::string& text, InputOption& option);

/// N=CELSIUS, N=faulty, N=disabled or N=none; false if the text is nothing of these.
bool parseSensorOption(const std::string& text, InputOption& option);

/// Sets what the option says. False, with the reason in `error`, if a supply's divider is to be
/// what VOUT_SCALE_MONITOR stands for and that is no ratio.
bool apply(const InputOption& option, Supplies& supplies, Image& ram, std::string& error);

/// Takes the text as a decimal number, whole.
bool parseDecimal(const std::string& text, double& number);

std::uint32_t toMicrovolts(double volts);

} // namespace virtualboard
