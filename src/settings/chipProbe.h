// What comes before a chip object is built, whose start selects page 255 and says nothing of why it
// failed. ProvedChip begins with it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The page that the chip on /dev/i2c-`bus` has selected. Empty, with the cause in `error`, if the
/// bus can't be opened, a driver of the kernel has the chip's address, or nothing answers there.
std::optional<std::uint8_t> probeSelectedPage(int bus, std::string& error);
