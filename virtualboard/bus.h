// The I2C bus with the chip on it: carries the messages of one transfer to the chip, or applies the
// session's fault rules to them, and writes the bus log. The device (i2cDevice.h) is given it.
#pragma once

#include <linux/i2c.h>

#include <cstddef>

#include "session.h"

namespace virtualboard {

/// A TransferFunction: carries out a whole transfer, without those of other processes in between. A
/// message with I2C_M_RECV_LEN gets its first byte and as many more as that says, 1 to 32, as in an
/// SMBus block read. Returns 0 or an errno: ENXIO for an address that isn't acknowledged, EREMOTEIO
/// for a byte, EPROTO for a count out of range, EIO with a message on stderr when the board's or
/// the session's file can't be used.
int transfer(Session& session, i2c_msg* messages, std::size_t count);

} // namespace virtualboard
