// The I2C bus with the chip on it: carries the messages of one transfer to the
// chip, or lets the session's fault rules meet them, and writes the bus log.
// Used by the device (i2cDevice.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "session.h"

namespace virtualboard {

/// One message: an address and the bytes that go with it in one direction.
struct Message {
    int address;
    bool read;
    std::uint8_t* bytes; ///< the caller's
    std::size_t size;
    /// Reads only: the first byte says how many more follow, 1 to 32, as in an
    /// SMBus block read. There is room for 33; `size` becomes what came.
    bool countFirst = false;
};

/// Carries out a transfer, start to stop, whole: no other process's falls into
/// it. Returns 0 or the errno of a Linux bus driver: ENXIO for an address that
/// isn't acknowledged, EREMOTEIO for a byte, EPROTO for a count out of range,
/// EIO with a message on stderr when the board's file can't be used.
int transfer(Session& session, Message* messages, std::size_t count);

} // namespace virtualboard
