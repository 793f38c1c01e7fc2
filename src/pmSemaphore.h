// The System V semaphore behind the lock on the power monitor, and the calls that all users of the
// chip make on it. The lock classes are built on these.
#pragma once

#include <sys/ipc.h>

/// Key of the semaphore set that all users of the chip share.
inline constexpr key_t PM_MUTEX_KEY = 0x9F39B;

namespace pmSemaphore {

inline constexpr int FREE = 1;
inline constexpr int TAKEN = 0;

/// Together 20 s: longer than any holder needs, so that a holder is probably dead by then.
inline constexpr int MAX_ATTEMPTS = 5;
inline constexpr unsigned int ATTEMPT_PAUSE_S = 5;

/// Opens the set, or makes it with its semaphore free. Returns its identifier; negative, with
/// errno, on failure.
int open();

void setValue(int semId, int value);

/// Adds `change`, without waiting. False, with errno, if that is not possible now. It does not use
/// SEM_UNDO: the other users of the chip recover a dead holder's lock by a takeover.
bool tryToChange(int semId, short change);

/// The value; -1, with errno, on failure.
int value(int semId);

/// The process that changed or set the value last: 0 if nobody did, or one that this process can't
/// see; -1, with errno, on failure.
int lastProcess(int semId);

} // namespace pmSemaphore
