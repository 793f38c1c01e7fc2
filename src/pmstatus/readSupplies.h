// Reads a chip for pmstatus: under the lock, page by page, each proved to be the right one; the
// page that was selected before is selected again in the end.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "chipState.h"

struct ReadingRequest {
    int bus = 0;                 ///< N of /dev/i2c-N
    bool releasesByPage = false; ///< gives the lock back after each page
    std::set<int> expectedOff;   ///< pages of channels and sensors
    /// Registers to read besides, by page, as a forecast needs them.
    std::map<int, std::set<std::uint8_t>> besides;
};

/// Reads all channels and sensors and the device's registers. Empty, with the reason in `error`, if
/// not everything can be read and relied on.
std::optional<ChipState> readSupplies(const ReadingRequest& request, std::string& error);

/// Clears the latched status, unless it is another by now than it was in `shown`; then `error`
/// says so. Empty if nothing was cleared, else the state of the chip with the status afterwards.
std::optional<ChipState> clearStatus(const ReadingRequest& request, const ChipState& shown,
                                     std::string& error);
