// How pages of the chip are called: channels, sensors and the device. Used wherever people are told
// of a register.
#pragma once

#include <map>
#include <string>

#include "commandCatalogue.h"

/// Before the first PAGE entry of a file, no page is selected.
inline constexpr int NO_PAGE = -1;

/// The number by which people know the sensor of a page.
constexpr int sensorNumber(int page)
{
    return page - Command::FIRST_SENSOR_PAGE;
}

/// Names of supplies and sensors, by page.
using Names = std::map<int, std::string>;

/// Those of the board that is worked on. A program that is given names sets them once.
extern Names boardNames;

/// Takes over names of pages that have none yet.
void knowNames(const Names& names);

/// The page's name on the board; empty if none is known.
std::string boardName(int page);

/// "channel 3", "sensor 0", "device", "page 12", "before the first page".
std::string pageNumberName(int page);

/// The same, and the page's name on the board if that is known: "channel 3 CORE_2V5".
std::string pageName(int page);

/// As in a sentence: "channel 3 CORE_2V5", "the device".
std::string placeName(int page);
