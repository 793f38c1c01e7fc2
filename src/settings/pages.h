// How pages of the chip are called: channels, sensors and the device. Used wherever people are told
// of a register.
#pragma once

#include <string>

#include "commandCatalogue.h"

/// Before the first PAGE entry of a file, no page is selected.
inline constexpr int NO_PAGE = -1;

/// The number by which people know the sensor of a page.
constexpr int sensorNumber(int page)
{
    return page - Command::FIRST_SENSOR_PAGE;
}

/// "channel 3", "sensor 0", "device", "page 12", "before the first page".
std::string pageName(int page);

/// As in a sentence: "channel 3", "the device".
std::string placeName(int page);
