#include "inputOptions.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace virtualboard {

namespace {

// What the registers can show, but for the values that stand for no measurement.
constexpr double CELSIUS_MIN = -327.67;
constexpr double CELSIUS_MAX = 327.66;
constexpr double CENTI = 100;

// Takes what stands before the sign away from the text, or all of it.
std::string takeUpTo(char sign, std::string& text)
{
    const std::size_t at = std::min(text.find(sign), text.size());
    std::string part = text.substr(0, at);
    text.erase(0, at + 1);
    return part;
}

// N=, one of `count` numbers, whose first stands for `firstPage`; the rest stays in the text.
bool takePage(std::string& text, int count, int firstPage, int& page)
{
    if (text.find('=') == std::string::npos) {
        return false;
    }
    double number = 0;
    const std::string name = takeUpTo('=', text);
    if (name.find_first_not_of("0123456789") != std::string::npos || !parseDecimal(name, number)
        || number >= count) {
        return false;
    }
    page = firstPage + static_cast<int>(number);
    return true;
}

} // namespace

bool parseDecimal(const std::string& text, double& number)
{
    char* end = nullptr;
    number = std::strtod(text.c_str(), &end);
    return text.find_first_not_of("-0123456789.") == std::string::npos && end != text.c_str()
           && *end == '\0' && std::isfinite(number);
}

std::uint32_t toMicrovolts(double volts)
{
    constexpr double MICRO = 1e6;
    return static_cast<std::uint32_t>(std::llround(volts * MICRO));
}

bool parseSupplyOption(const std::string& text, InputOption& option)
{
    using Kind = InputOption::Kind;
    option = {};
    if (text == "all=nominal" || text == "all=none") {
        option.kind = text == "all=none" ? Kind::ALL_NONE : Kind::ALL_NOMINAL;
        return true;
    }
    std::string rest = text;
    if (!takePage(rest, Command::CHANNELS, 0, option.page)) {
        return false;
    }
    if (rest == "none") {
        return true;
    }
    option.kind = Kind::SUPPLY;
    const bool hasRatio = rest.find('@') != std::string::npos;
    double volts = 0;
    double ratio = 0;
    if (!parseDecimal(takeUpTo('@', rest), volts) || volts < 0 || volts > VOLTS_MAX) {
        return false;
    }
    option.microvolts = toMicrovolts(volts);
    if (!hasRatio) {
        return true;
    }
    const bool isRatio = parseDecimal(rest, ratio) && ratio > 0 && ratio <= 1;
    option.divider = isRatio ? static_cast<std::uint32_t>(std::llround(ratio * DIVIDER_ONE)) : 0;
    return option.divider > 0;
}

bool parseSensorOption(const std::string& text, InputOption& option)
{
    using Kind = InputOption::Kind;
    option = {};
    std::string rest = text;
    if (!takePage(rest, Command::SENSORS, Command::FIRST_SENSOR_PAGE, option.page)) {
        return false;
    }
    if (rest == "none") {
        return true;
    }
    option.kind = Kind::SENSOR;
    option.reading = rest == "faulty" ? FAULTY_SENSOR : DISABLED_SENSOR;
    if (rest == "faulty" || rest == "disabled") {
        return true;
    }
    double celsius = 0;
    if (!parseDecimal(rest, celsius) || celsius < CELSIUS_MIN || celsius > CELSIUS_MAX) {
        return false;
    }
    option.reading = static_cast<std::int16_t>(std::lround(celsius * CENTI));
    return true;
}

bool apply(const InputOption& option, Supplies& supplies, Image& ram, std::string& error)
{
    using Kind = InputOption::Kind;
    const auto set = [&](int page, std::uint32_t microvolts) {
        const std::uint32_t divider = option.divider != 0 ? option.divider : dividerOf(ram, page);
        if (divider == 0) {
            error = "channel " + std::to_string(page) + " has no ratio in VOUT_SCALE_MONITOR: name "
                    + "the divider, as in " + std::to_string(page) + "=VOLTS@RATIO";
            return false;
        }
        setSupply(supplies, ram, page, microvolts, divider);
        return true;
    };
    switch (option.kind) {
    case Kind::SUPPLY:
        return set(option.page, option.microvolts);
    case Kind::SENSOR:
        setSensor(supplies, ram, option.page, option.reading);
        return true;
    case Kind::NONE:
        unset(supplies, ram, option.page);
        return true;
    case Kind::ALL_NOMINAL:
        for (int page = 0; page < Command::CHANNELS; ++page) {
            const int nominal = wordOf(ram, MfrChannelNominal::CODE, page);
            if (nominal > 0
                && !set(page, static_cast<std::uint32_t>(nominal) * MICROVOLTS_PER_STEP)) {
                return false;
            }
        }
        return true;
    case Kind::ALL_NONE:
        for (int page = 0; page < Command::CHANNELS; ++page) {
            unset(supplies, ram, page);
        }
        return true;
    }
    return false; // never: all kinds are named
}

} // namespace virtualboard
