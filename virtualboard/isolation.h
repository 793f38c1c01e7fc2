// Hides the machine's own I2C buses from a command that is to run on the virtual one: programs that
// drop the preloaded library, such as static ones, would open them. Used by the launcher.
#pragma once

#include <string>

namespace virtualboard {

/// Hides /dev/i2c-* behind /dev/null from this process and those that it starts, if the machine has
/// any; other processes see no difference. False, with the reason in `error`, if the kernel doesn't
/// allow it. Call it while the process has one thread.
bool hideBuses(std::string& error);

} // namespace virtualboard
