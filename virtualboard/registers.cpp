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
    case OnOffConfig::CODE:
        return 0x1A;
    case Capability::CODE: // 400 kHz, neither PEC nor alert (PMBus standard)
        return 0x20;
    case VoutMode::CODE: // DIRECT format (PMBus standard)
        return 0x40;
    case VoutMarginHigh::CODE:
    case VoutScaleMonitor::CODE: // a ratio of 1
    case VoutOVFaultLimit::CODE:
    case VoutOVWarnLimit::CODE:
    case OTFaultLimit::CODE:
    case OTWarnLimit::CODE:
        return 0x7FFF;
    case PmbusRevision::CODE:
        return 0x11;
    case MfrId::CODE:
        return 'M';
    case MfrModel::CODE:
        return 'Z';
    case MfrRevision::CODE: // two characters
        return 0x3030;
    case MfrFwSerial::CODE:
        return 1;
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
        return 0;
    }
}

} // namespace

const Register* findRegister(int code)
{
    const catalogue::Row* row = catalogue::find(static_cast<unsigned>(code));
    return row == nullptr ? nullptr : &REGISTERS[static_cast<std::size_t>(row - catalogue::ROWS)];
}

void factoryValue(const Register& reg, int copy, std::uint8_t* bytes)
{
    switch (reg.code) {
    case MfrLocation::CODE:
    case MfrDate::CODE:
    case MfrSerial::CODE:
        for (int i = 0; i < reg.size; ++i) {
            bytes[i] = i % 2 == 0 ? 0x31 : 0x30;
        }
        return;
    case MfrNvFaultLog::CODE: // reads as erased flash
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
