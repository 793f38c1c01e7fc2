// The processes of a run: the command and all that it starts. Used by the launcher, and by the bus
// when a fault rule kills them.
#pragma once

#include <sys/types.h>

namespace virtualboard {

/// Makes the calling process, the launcher, the parent of whatever its descendants leave behind, so
/// that nothing leaves the run.
void adoptOrphans();

/// Kills every descendant of the launcher, and the calling process last. `launcher` 0: that alone.
void killRun(pid_t launcher);

} // namespace virtualboard
