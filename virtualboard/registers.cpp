#include "registers.h"

#include <algorithm>

namespace virtualboard {

namespace {

// Typical supplies of such a board, in mV (DIRECT format: 1 mV per step).
constexpr std::array<int, Command::CHANNELS> SUPPLY_MV{12000, 5000, 3300, 2500, 1800, 1500,
                                                       1350,  1200, 1100, 1050, 1000, 900};
// Sensors in hundredths of a degree Celsius, the format's step.
constexpr std::array<int, Command::SENSORS> SENSOR_CENTI_C{3125, 3350, 2975, 4100, 3650};

// Registers that change by themselves have plausible values, all others the data sheets' factory
// values.
int factoryNumber(const Register& reg, int copy)
{
    const auto at = static_cast<std::size_t>(copy);
    switch (reg.code) {
    case ReadVout::CODE:
        return SUPPLY_MV.at(at);
    case MfrVoutPeak::CODE:
        return SUPPLY_MV.at(at) + SUPPLY_MV.at(at) / 200;
    case MfrVoutMin::CODE:
        return SUPPLY_MV.at(at) - SUPPLY_MV.at(at) / 200;
    case ReadTemperature::CODE:
    case MfrTemperatureAvg::CODE:
        return SENSOR_CENTI_C.at(at);
    case MfrTemperaturePeak::CODE:
        return SENSOR_CENTI_C.at(at) + 250;
    default:
        return reg.factory;
    }
}

} // namespace

const Register* findRegister(int code)
{
    const catalogue::Row* row = catalogue::find(static_cast<unsigned int>(code));
    return row == nullptr ? nullptr : &REGISTERS[static_cast<std::size_t>(row - catalogue::ROWS)];
}

void factoryValue(const Register& reg, int copy, std::uint8_t* bytes)
{
    Register shown = reg;
    shown.factory = static_cast<std::uint16_t>(factoryNumber(reg, copy));
    for (unsigned int i = 0; i < reg.size; ++i) {
        // The fault log reads as erased flash.
        bytes[i] = reg.code == MfrNvFaultLog::CODE ? 0xFF : factoryByte(shown, i);
    }
}

} // namespace virtualboard
