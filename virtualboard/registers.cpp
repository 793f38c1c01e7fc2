#include "registers.h"

#include <algorithm>

namespace virtualboard {

namespace {

// Supplies as a board of this kind has them, in mV (DIRECT format: 1 mV a step).
constexpr std::array<int, CHANNEL_COUNT> SUPPLY_MV{12000, 5000, 3300, 2500, 1800, 1500,
                                                   1350,  1200, 1100, 1050, 1000, 900};
// Sensors in hundredths of a degree Celsius, the format's step.
constexpr std::array<int, SENSOR_COUNT> SENSOR_CENTI_C{3125, 3350, 2975, 4100, 3650};

// Identity and limits are the data sheets' factory values.
int factoryNumber(int code, int copy)
{
    const auto at = static_cast<std::size_t>(copy);
    switch (code) {
    case code::ON_OFF_CONFIG:
        return 0x1A;
    case 0x19: // CAPABILITY: 400 kHz, neither PEC nor alert (PMBus standard)
        return 0x20;
    case 0x20: // VOUT_MODE: DIRECT format (PMBus standard)
        return 0x40;
    case 0x25: // VOUT_MARGIN_HIGH
    case 0x2A: // VOUT_SCALE_MONITOR: a ratio of 1
    case 0x40: // VOUT_OV_FAULT_LIMIT
    case 0x42: // VOUT_OV_WARN_LIMIT
    case 0x4F: // OT_FAULT_LIMIT
    case 0x51: // OT_WARN_LIMIT
        return 0x7FFF;
    case 0x98: // PMBUS_REVISION
        return 0x11;
    case 0x99: // MFR_ID
        return 'M';
    case code::MFR_MODEL:
        return 'Z';
    case 0x9B: // MFR_REVISION: two characters
        return 0x3030;
    case 0xE0: // MFR_FW_SERIAL
        return 1;
    case 0x8B: // READ_VOUT
        return SUPPLY_MV.at(at);
    case 0xD4: // MFR_VOUT_PEAK
        return SUPPLY_MV.at(at) + SUPPLY_MV.at(at) / 200;
    case 0xD7: // MFR_VOUT_MIN
        return SUPPLY_MV.at(at) - SUPPLY_MV.at(at) / 200;
    case 0x8D: // READ_TEMPERATURE
    case 0xE3: // MFR_TEMPERATURE_AVG
        return SENSOR_CENTI_C.at(at);
    case 0xD6: // MFR_TEMPERATURE_PEAK
        return SENSOR_CENTI_C.at(at) + 250;
    default:
        return 0;
    }
}

} // namespace

const Register* findRegister(int code)
{
    const auto* found = std::find_if(REGISTERS.begin(), REGISTERS.end(),
                                     [code](const Register& reg) { return reg.code == code; });
    return found == REGISTERS.end() ? nullptr : found;
}

void factoryValue(const Register& reg, int copy, std::uint8_t* bytes)
{
    switch (reg.code) {
    case 0x9C: // MFR_LOCATION
    case 0x9D: // MFR_DATE
    case 0x9E: // MFR_SERIAL
        for (int i = 0; i < reg.size; ++i) {
            bytes[i] = i % 2 == 0 ? 0x31 : 0x30;
        }
        return;
    case 0xDC: // MFR_NV_FAULT_LOG reads as erased flash
        std::fill_n(bytes, reg.size, std::uint8_t{0xFF});
        return;
    default:
        break;
    }
    const int number = factoryNumber(reg.code, copy);
    for (int i = 0; i < reg.size; ++i) {
        bytes[i] = i < 2 ? static_cast<std::uint8_t>(number >> (8 * i)) : std::uint8_t{0};
    }
}

} // namespace virtualboard
