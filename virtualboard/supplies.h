// The supplies and temperature sensors at the chip's inputs, and how the chip watches them. Kept in
// a board's file; used by the bus, around each transfer, and by whoever sets up a board.
#pragma once

#include <array>
#include <cstdint>
#include <type_traits>

#include "bytes.h"
#include "chip.h"
#include "registers.h"

namespace virtualboard {

/// A divider that passes a supply's voltage on as it is. VOUT_SCALE_MONITOR counts 32767 for that;
/// here there are 65536 steps to each of its own.
inline constexpr std::uint32_t DIVIDER_ONE = 32767U << 16;

inline constexpr std::uint32_t MICROVOLTS_PER_STEP = 1000; ///< of READ_VOUT and its like

/// A voltage that READ_VOUT shows through a divider and VOUT_SCALE_MONITOR.
struct Supply {
    std::uint8_t isSet;     ///< 0: READ_VOUT and the peaks are plain registers, nothing is watched
    std::uint8_t hasComeUp; ///< since power-up, so that undervoltage is watched
    NumberBytes microvolts; ///< of the supply itself
    NumberBytes divider;    ///< what stands at the chip's pin is this much of it
};

struct Sensor {
    std::uint8_t isSet;                  ///< 0: as with a supply
    std::array<std::uint8_t, 2> reading; ///< READ_TEMPERATURE, in bus order
};

/// All zero: none is set, as on boards of before.
struct Supplies {
    std::array<Supply, Command::CHANNELS> channels;
    std::array<Sensor, Command::SENSORS> sensors;
};
static_assert(std::is_trivially_copyable_v<Supplies> && alignof(Supplies) == 1);

/// Readings of a sensor that measures nothing (sheets of the chip's siblings).
inline constexpr std::int16_t FAULTY_SENSOR = 0x7FFF;
inline constexpr std::int16_t DISABLED_SENSOR = 0x0000;

/// Gives the supply of a page, 0 to 11, its voltage and divider. Its peaks go on, or begin if it
/// had none.
void setSupply(Supplies& supplies, Image& ram, int page, std::uint32_t microvolts,
               std::uint32_t divider);

/// Gives the sensor of a page, 13 to 17, its reading: hundredths of a degree, or one of the above.
void setSensor(Supplies& supplies, Image& ram, int page, std::int16_t reading);

/// Takes a page's supply or sensor away: read-outs and peaks show what they do on a new board.
void unset(Supplies& supplies, Image& ram, int page);

/// The divider that a page's VOUT_SCALE_MONITOR stands for; 0 if that is no ratio.
std::uint32_t dividerOf(Image& ram, int page);

/// Power-up: peaks begin at the readings, and undervoltage waits until a supply has come up.
void startWatching(Supplies& supplies, Image& ram);

/// Lets READ_VOUT and READ_TEMPERATURE show what is set.
void measure(const Supplies& supplies, Image& ram);

/// Measures, keeps peaks and averages, and latches status where a reading is beyond a limit.
void watch(Supplies& supplies, Image& ram);

} // namespace virtualboard
