#include "judge.h"

#include <algorithm>

#include "commandCatalogue.h"
#include "values.h"

namespace {

constexpr Limit CHANNEL_LIMITS[] = {
    {VoutOVFaultLimit::CODE, 0x80, true, State::FAULT, "overvoltage fault", "ov_fault"},
    {VoutOVWarnLimit::CODE, 0x40, true, State::WARNING, "overvoltage warning", "ov_warning"},
    {VoutUVWarnLimit::CODE, 0x20, false, State::WARNING, "undervoltage warning", "uv_warning"},
    {VoutUVFaultLimit::CODE, 0x10, false, State::FAULT, "undervoltage fault", "uv_fault"},
};
constexpr Limit SENSOR_LIMITS[] = {
    {OTFaultLimit::CODE, 0x80, true, State::FAULT, "overtemperature fault", "ot_fault"},
    {OTWarnLimit::CODE, 0x40, true, State::WARNING, "overtemperature warning", "ot_warning"},
};

/// What peaks are reset to (the Linux driver of the chip): none has been seen since.
constexpr int RESET_HIGHEST = 0;
constexpr int RESET_LOWEST = 0x7FFF;
constexpr int RESET_TEMPERATURE = -0x8000;

/// STATUS_VOUT's bit for a supply that did not come up in time (PMBus standard).
constexpr std::uint8_t TON_MAX_FAULT = 0x04;

/// Whether the chip's reading can be compared with limits at all.
bool isMeasured(const Rail& rail)
{
    return rail.isChannel() || std::ranges::all_of(rail.readings, isTemperature);
}

bool isPresent(const Rail& rail, const Limit& limit)
{
    return isMeasured(rail) && std::ranges::all_of(rail.readings, [&](int reading) {
               return isBeyond(rail, limit, reading);
           });
}

/// "3.650 V is above 3.600 V", or another relation in place of "is".
std::string comparison(const Rail& rail, const Limit& limit, const char* relation)
{
    return registerText(limit.code, rail.reading()) + relation
           + (limit.isUpper ? "above " : "below ")
           + registerText(limit.code, rail.value(limit.code));
}

/// Whether a supply is below the limit because it is switched off, as it should be.
bool isExcused(const Rail& rail, const Limit& limit)
{
    return rail.isExpectedOff && !limit.isUpper;
}

/// Whether being beyond the fault limit of the same side says it already.
bool isImplied(const Rail& rail, const Limit& limit)
{
    return limit.state == State::WARNING
           && std::ranges::any_of(limitsOf(rail), [&](const Limit& other) {
                  return other.state == State::FAULT && other.isUpper == limit.isUpper
                         && isPresent(rail, other);
              });
}

/// The complaint about a limit whose bit is latched.
RailComplaint latchedComplaint(const Rail& rail, const Limit& limit)
{
    std::string how = "latched";
    if (isPresent(rail, limit)) {
        how += isExcused(rail, limit) ? "; it is expected to be off"
                                      : " and present; " + comparison(rail, limit, " is ");
    } else if (isMeasured(rail)) {
        const bool isWithin = std::ranges::none_of(
            limitsOf(rail), [&](const Limit& other) { return isPresent(rail, other); });
        how += "; "
               + (isWithin ? registerText(limit.code, rail.reading()) + " is within its limits"
                           : comparison(rail, limit, " is not "));
    }
    return {limit.state, std::string(limit.name) + " (" + how + ")"};
}

/// The complaint about a reading beyond a limit whose bit is not latched.
RailComplaint presentComplaint(const Rail& rail, const Limit& limit)
{
    // The chip watches undervoltage only once a supply has come up (data sheet of a sibling).
    const bool isDown = limit.code == VoutUVFaultLimit::CODE;
    return {isDown ? State::WARNING : limit.state,
            std::string(isDown ? "off, or not watched yet" : limit.name) + " (present; "
                + comparison(rail, limit, " is ") + ")"};
}

} // namespace

std::string registerText(std::uint8_t code, int number)
{
    const catalogue::Row& row = *catalogue::find(code);
    const auto word = static_cast<std::uint16_t>(number);
    const std::uint8_t bytes[] = {static_cast<std::uint8_t>(word),
                                  static_cast<std::uint8_t>(word >> 8)};
    return valueText(row, std::span(bytes).first(row.size));
}

const char* stateName(State state)
{
    switch (state) {
    case State::GOOD:
        return "good";
    case State::WARNING:
        return "warning";
    default:
        return "fault";
    }
}

bool Rail::isChannel() const
{
    return Command::isChannelPage(static_cast<std::uint8_t>(page));
}

std::uint8_t Rail::status() const
{
    return static_cast<std::uint8_t>(
        value(isChannel() ? StatusVout::CODE : StatusTemperature::CODE));
}

std::optional<int> Rail::nominal() const
{
    const auto found = registers.find(MfrChannelNominal::CODE);
    const bool isKnown = found != registers.end() && found->second > 0;
    return isKnown ? std::optional(found->second) : std::nullopt;
}

std::optional<int> Rail::lowest() const
{
    const int peak = value(MfrVoutMin::CODE);
    return peak == RESET_LOWEST ? std::nullopt : std::optional(peak);
}

std::optional<int> Rail::highest() const
{
    const int peak = value(isChannel() ? MfrVoutPeak::CODE : MfrTemperaturePeak::CODE);
    return peak == (isChannel() ? RESET_HIGHEST : RESET_TEMPERATURE) ? std::nullopt
                                                                     : std::optional(peak);
}

bool Rail::isRunning() const
{
    return reading() > 0 && reading() >= value(VoutUVFaultLimit::CODE);
}

std::vector<Limit> limitsOf(const Rail& rail)
{
    return rail.isChannel() ? std::vector(std::begin(CHANNEL_LIMITS), std::end(CHANNEL_LIMITS))
                            : std::vector(std::begin(SENSOR_LIMITS), std::end(SENSOR_LIMITS));
}

bool isSet(const Rail& rail, const Limit& limit)
{
    return rail.value(limit.code) != catalogue::find(limit.code)->factory;
}

bool isBeyond(const Rail& rail, const Limit& limit, int number)
{
    const int bound = rail.value(limit.code);
    return isSet(rail, limit) && (limit.isUpper ? number > bound : number < bound);
}

bool needsSecondReading(const Rail& rail)
{
    return std::ranges::any_of(limitsOf(rail), [&](const Limit& limit) {
        return (rail.status() & limit.bit) == 0 && isPresent(rail, limit)
               && !isExcused(rail, limit);
    });
}

bool isTemperature(int reading)
{
    return reading != FAULTY_SENSOR && reading != DISABLED_SENSOR;
}

std::vector<RailComplaint> judge(const Rail& rail)
{
    std::vector<RailComplaint> complaints;
    if (!rail.isChannel() && rail.reading() == FAULTY_SENSOR && !rail.isExpectedOff) {
        complaints.push_back({State::WARNING, "faulty sensor (present)"});
    }
    for (const Limit& limit : limitsOf(rail)) {
        if ((rail.status() & limit.bit) != 0) {
            complaints.push_back(latchedComplaint(rail, limit));
        } else if (isPresent(rail, limit) && !isExcused(rail, limit) && !isImplied(rail, limit)) {
            complaints.push_back(presentComplaint(rail, limit));
        }
    }
    if (rail.isChannel() && (rail.status() & TON_MAX_FAULT) != 0) {
        complaints.push_back({State::FAULT, "TON_MAX fault: it did not come up in time (latched)"});
    }
    return complaints;
}

std::uint8_t knownBits(const Rail& rail)
{
    unsigned int known = rail.isChannel() ? TON_MAX_FAULT : 0;
    for (const Limit& limit : limitsOf(rail)) {
        known |= limit.bit;
    }
    return static_cast<std::uint8_t>(rail.status() & known);
}

std::uint8_t unknownBits(const Rail& rail)
{
    return static_cast<std::uint8_t>(rail.status() & ~knownBits(rail));
}

std::vector<std::string> latchedNames(const Rail& rail)
{
    std::vector<std::string> names;
    for (const Limit& limit : limitsOf(rail)) {
        if ((rail.status() & limit.bit) != 0) {
            names.emplace_back(limit.name);
        }
    }
    if (rail.isChannel() && (rail.status() & TON_MAX_FAULT) != 0) {
        names.emplace_back("TON_MAX fault");
    }
    return names;
}

State worstOf(const std::vector<RailComplaint>& complaints)
{
    State worst = State::GOOD;
    for (const RailComplaint& complaint : complaints) {
        worst = std::max(worst, complaint.state);
    }
    return worst;
}
