// The lock between the processes that use the power monitor: a System V semaphore that
// PowerFileHandler takes for each of its operations.
#pragma once

#include <string>

#include "pmSemaphore.h"

/// Holds the lock from the end of its construction to its destruction. It never reports failure to
/// its caller: without a semaphore, or if the lock stays taken for about 20 s, it logs that and the
/// caller continues without the lock.
class PmMutexLock {
public:
    /// Waits for the lock; `owner` names its holder in the log.
    explicit PmMutexLock(const char* owner);

    /// Releases the lock, also a stale one that was taken over.
    ~PmMutexLock();

    PmMutexLock(const PmMutexLock&) = delete;
    PmMutexLock& operator=(const PmMutexLock&) = delete;

protected:
    int m_semId; ///< of the semaphore set; negative if there is none
    std::string m_owner;
};
