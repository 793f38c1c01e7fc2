// The character device of the virtual bus: answers the requests of the kernel's I2C device
// interface. Used by the shim, and by tests that need no preloading.
#pragma once

#include "session.h"

namespace virtualboard {

/// Answers `ioctl(fd, request, argument)` on the bus as a kernel does: -1 with errno on failure,
/// else 0, or the number of messages of I2C_RDWR. `address` is what the descriptor is bound to; it
/// starts at 0.
int deviceRequest(Session& session, unsigned long request, void* argument, unsigned& address);

} // namespace virtualboard
