#include "supplies.h"

#include <algorithm>

namespace virtualboard {

namespace {

// A limit, and what it latches in the status register of its page (PMBus standard) and, in the two
// bytes of STATUS_WORD, for the device (the standard and the chip's siblings).
struct Limit {
    std::uint8_t code;
    bool isUpper;
    std::uint8_t bit;
    std::uint8_t wordLow;
    std::uint8_t wordHigh;
};

constexpr std::uint8_t WORD_OVERVOLTAGE = 0x20; // low byte
constexpr std::uint8_t WORD_TEMPERATURE = 0x04; // low byte
constexpr std::uint8_t WORD_VOUT = 0x80;        // high byte

constexpr Limit VOLTAGE_LIMITS[] = {
    {VoutOVFaultLimit::CODE, true, 0x80, WORD_OVERVOLTAGE, WORD_VOUT},
    {VoutOVWarnLimit::CODE, true, 0x40, 0, WORD_VOUT},
    {VoutUVWarnLimit::CODE, false, 0x20, 0, WORD_VOUT},
    {VoutUVFaultLimit::CODE, false, 0x10, 0, WORD_VOUT},
};
constexpr Limit TEMPERATURE_LIMITS[] = {
    {OTFaultLimit::CODE, true, 0x80, WORD_TEMPERATURE, 0},
    {OTWarnLimit::CODE, true, 0x40, WORD_TEMPERATURE, 0},
};

// What resets a highest temperature: each reading is higher.
constexpr std::int16_t LEAST = INT16_MIN;

void setWord(Image& ram, int code, int page, int word)
{
    std::uint8_t* bytes = bytesOf(ram, code, page);
    bytes[0] = static_cast<std::uint8_t>(word);
    bytes[1] = static_cast<std::uint8_t>(word >> 8);
}

// The voltage at the pin divided by VOUT_SCALE_MONITOR, to the nearest step that the register has.
int readingOf(const Supply& supply, int scale)
{
    const std::int64_t pin = std::int64_t{toNumber(supply.microvolts)} * toNumber(supply.divider);
    const std::int64_t steps = std::int64_t{scale} * (std::int64_t{1} << 16) * MICROVOLTS_PER_STEP;
    if (steps == 0) {
        return pin == 0 ? 0 : INT16_MAX;
    }
    const std::int64_t half = (steps < 0 ? -steps : steps) / 2;
    return static_cast<int>(std::clamp<std::int64_t>((pin + half) / steps, INT16_MIN, INT16_MAX));
}

bool measuresNothing(int reading)
{
    return reading == FAULTY_SENSOR || reading == DISABLED_SENSOR;
}

void measureSupply(const Supply& supply, Image& ram, int page)
{
    setWord(ram, ReadVout::CODE, page,
            readingOf(supply, wordOf(ram, VoutScaleMonitor::CODE, page)));
}

void beginPeaks(Image& ram, int page)
{
    const int reading = wordOf(ram, ReadVout::CODE, page);
    setWord(ram, MfrVoutPeak::CODE, page, reading);
    setWord(ram, MfrVoutMin::CODE, page, reading);
}

void beginTemperatures(Image& ram, int page)
{
    const int reading = wordOf(ram, ReadTemperature::CODE, page);
    setWord(ram, MfrTemperaturePeak::CODE, page, measuresNothing(reading) ? LEAST : reading);
    setWord(ram, MfrTemperatureAvg::CODE, page, measuresNothing(reading) ? 0 : reading);
}

// A limit at its factory value watches nothing.
bool isBeyond(Image& ram, const Limit& limit, int page, int reading)
{
    const int bound = wordOf(ram, limit.code, page);
    if (bound == static_cast<std::int16_t>(findRegister(limit.code)->factory)) {
        return false;
    }
    return limit.isUpper ? reading > bound : reading < bound;
}

void latch(Image& ram, const Limit& limit, int statusCode, int page)
{
    *bytesOf(ram, statusCode, page) |= limit.bit;
    std::uint8_t* word = bytesOf(ram, StatusWord::CODE, page);
    word[0] |= limit.wordLow;
    word[1] |= limit.wordHigh;
}

void watchSupply(Supply& supply, Image& ram, int page)
{
    const int reading = wordOf(ram, ReadVout::CODE, page);
    setWord(ram, MfrVoutPeak::CODE, page,
            std::max<int>(reading, wordOf(ram, MfrVoutPeak::CODE, page)));
    setWord(ram, MfrVoutMin::CODE, page,
            std::min<int>(reading, wordOf(ram, MfrVoutMin::CODE, page)));
    if (reading > 0 && reading >= wordOf(ram, VoutUVFaultLimit::CODE, page)) {
        supply.hasComeUp = 1;
    }
    for (const Limit& limit : VOLTAGE_LIMITS) {
        const bool watched = limit.isUpper || supply.hasComeUp != 0;
        if (watched && isBeyond(ram, limit, page, reading)) {
            latch(ram, limit, StatusVout::CODE, page);
        }
    }
}

// What the chip averages over is not known; here an average goes an eighth of the way each time.
int nearer(int average, int reading)
{
    const int way = reading - average;
    return average + (way / 8 != 0 ? way / 8 : (way > 0) - (way < 0));
}

void watchSensor(Image& ram, int page)
{
    const int reading = wordOf(ram, ReadTemperature::CODE, page);
    if (measuresNothing(reading)) {
        return;
    }
    setWord(ram, MfrTemperaturePeak::CODE, page,
            std::max<int>(reading, wordOf(ram, MfrTemperaturePeak::CODE, page)));
    setWord(ram, MfrTemperatureAvg::CODE, page,
            nearer(wordOf(ram, MfrTemperatureAvg::CODE, page), reading));
    for (const Limit& limit : TEMPERATURE_LIMITS) {
        if (isBeyond(ram, limit, page, reading)) {
            latch(ram, limit, StatusTemperature::CODE, page);
        }
    }
}

// Calls `action(input, page)` for each input that is set.
template <typename Inputs, typename Action>
void forEachSet(Inputs& inputs, int firstPage, Action action)
{
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (inputs[i].isSet != 0) {
            action(inputs[i], firstPage + static_cast<int>(i));
        }
    }
}

} // namespace

void setSupply(Supplies& supplies, Image& ram, int page, std::uint32_t microvolts,
               std::uint32_t divider)
{
    Supply& supply = supplies.channels.at(static_cast<std::size_t>(page));
    const bool isNew = supply.isSet == 0;
    supply = {1, supply.hasComeUp, toBytes(microvolts), toBytes(divider)};
    measureSupply(supply, ram, page);
    if (isNew) {
        beginPeaks(ram, page);
    }
}

void setSensor(Supplies& supplies, Image& ram, int page, std::int16_t reading)
{
    Sensor& sensor =
        supplies.sensors.at(static_cast<std::size_t>(page - Command::FIRST_SENSOR_PAGE));
    const bool isNew = sensor.isSet == 0;
    sensor = {1, {static_cast<std::uint8_t>(reading), static_cast<std::uint8_t>(reading >> 8)}};
    setWord(ram, ReadTemperature::CODE, page, reading);
    if (isNew) {
        beginTemperatures(ram, page);
    }
}

void unset(Supplies& supplies, Image& ram, int page)
{
    const bool isChannel = page < Command::CHANNELS;
    const int copy = isChannel ? page : page - Command::FIRST_SENSOR_PAGE;
    const auto at = static_cast<std::size_t>(copy);
    (isChannel ? supplies.channels.at(at).isSet : supplies.sensors.at(at).isSet) = 0;
    for (const int code :
         {ReadVout::CODE, MfrVoutPeak::CODE, MfrVoutMin::CODE, ReadTemperature::CODE,
          MfrTemperaturePeak::CODE, MfrTemperatureAvg::CODE}) {
        if (std::uint8_t* bytes = bytesOf(ram, code, page)) {
            factoryValue(*findRegister(code), copy, bytes);
        }
    }
}

std::uint32_t dividerOf(Image& ram, int page)
{
    const std::int16_t scale = wordOf(ram, VoutScaleMonitor::CODE, page);
    return scale <= 0 ? 0 : static_cast<std::uint32_t>(scale) << 16;
}

void startWatching(Supplies& supplies, Image& ram)
{
    measure(supplies, ram);
    for (Supply& supply : supplies.channels) {
        supply.hasComeUp = 0;
    }
    forEachSet(supplies.channels, 0, [&](const Supply&, int page) { beginPeaks(ram, page); });
    forEachSet(supplies.sensors, Command::FIRST_SENSOR_PAGE,
               [&](const Sensor&, int page) { beginTemperatures(ram, page); });
}

void measure(const Supplies& supplies, Image& ram)
{
    forEachSet(supplies.channels, 0,
               [&](const Supply& supply, int page) { measureSupply(supply, ram, page); });
    forEachSet(supplies.sensors, Command::FIRST_SENSOR_PAGE, [&](const Sensor& sensor, int page) {
        std::copy(sensor.reading.begin(), sensor.reading.end(),
                  bytesOf(ram, ReadTemperature::CODE, page));
    });
}

void watch(Supplies& supplies, Image& ram)
{
    measure(supplies, ram);
    forEachSet(supplies.channels, 0,
               [&](Supply& supply, int page) { watchSupply(supply, ram, page); });
    forEachSet(supplies.sensors, Command::FIRST_SENSOR_PAGE,
               [&](const Sensor&, int page) { watchSensor(ram, page); });
}

} // namespace virtualboard
