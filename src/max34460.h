// The power monitor chip: the open I2C bus, the chip's identity and installed version, and whether
// it answered. PowerFileHandler derives from it.
#pragma once

#include <cstdint>
#include <string>

#include "command.h"

/// States of the chip as seen by a Max34460 object.
inline constexpr int HW_STATE_INIT = 0;
inline constexpr int HW_STATE_OK = 1;
inline constexpr int HW_STATE_FAILED = 2;

/// MFR_MODEL of the only model on which MFR_CHANNEL_NOMINAL can't be read back.
inline constexpr std::uint8_t MODEL_WITHOUT_NOMINAL = 0x57;

/// The MAX34460 at an address on an I2C bus. Its construction opens the bus and identifies the
/// chip, without the lock; a failure ends in HW_STATE_FAILED.
class Max34460 {
public:
    /// `bus` is the number in /dev/i2c-N, `address` the chip's 7-bit address.
    Max34460(const std::string& name, int bus, int address);
    virtual ~Max34460();

    Max34460(const Max34460&) = delete;
    Max34460& operator=(const Max34460&) = delete;

    /// Whether the chip answered when the object was built.
    bool isHwOk() const;

    // The steps of the construction.

    /// Reads identity, model and revision. False, with a message, on failure.
    bool readGeneralInfo();
    /// Reads the installed version record. False, with a message, on failure.
    bool readVersionInfo();
    void setHwState(int state);
    /// Sets the error flag and counts how often it was raised.
    void setHwError(bool error);

protected:
    int m_fd; ///< the bus handle of all transfers, owned; -1 if the bus can't be opened
    std::string m_name;
    std::string m_devicePath;
    int m_bus;
    int m_address;
    int m_hwState;
    bool m_hwError;
    int m_hwErrorCount;
    // As read at construction; all zero where the read failed or was not made.
    MfrId m_mfrId;
    MfrModel m_mfrModel;
    MfrRevision m_mfrRevision;
    MfrDate m_mfrDate; ///< version record of the installed power settings

private:
    bool openBus();
};
