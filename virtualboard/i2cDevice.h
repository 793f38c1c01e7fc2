// The character device of a bus: answers the requests of the kernel's I2C device interface and
// leaves the transfers to the bus that it is given. Used by the shim, by the benchmarks, and by
// tests that need no preloading.
#pragma once

#include <linux/i2c.h>

#include <cstddef>
#include <functional>

namespace virtualboard {

/// Carries out a transfer on a bus, from start to stop. For a message with I2C_M_RECV_LEN there is
/// room for 33 bytes; its `len` becomes the number received. Returns 0, or the errno of a Linux bus
/// driver.
using TransferFunction = std::function<int(i2c_msg* messages, std::size_t count)>;

/// Answers `ioctl(fd, request, argument)` as a kernel does: -1 with errno on failure, else 0, or
/// the number of messages of I2C_RDWR. `address` is what the descriptor is bound to; it starts at
/// 0.
int deviceRequest(const TransferFunction& transfer, unsigned long request, void* argument,
                  unsigned int& address);

} // namespace virtualboard
