// What was read from a chip about itself and the supplies that it watches. readSupplies fills it;
// judging, forecasts and reports use it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "command.h"
#include "judge.h"

struct ChipState {
    std::uint8_t model = 0;             ///< MFR_MODEL
    std::string settingsVersion;        ///< "2.5"
    std::map<std::uint8_t, int> device; ///< numbers in the device's registers, by command code
    std::vector<Rail> rails;            ///< all channels, then all sensors

    unsigned int statusWord() const
    {
        return static_cast<std::uint16_t>(device.at(StatusWord::CODE));
    }
};
