#include "pmMutexLock.h"

#include <unistd.h>

#include "log.h"

PmMutexLock::PmMutexLock(const char* owner) : m_semId(pmSemaphore::open()), m_owner(owner)
{
    if (m_semId < 0) {
        LOG(ERROR, "Cannot get semaphore for %s", m_owner.c_str());
        LOG(DEBUG, "Cannot acquire semaphore for %s", m_owner.c_str());
        return;
    }
    for (int attempt = 1; attempt <= pmSemaphore::MAX_ATTEMPTS; ++attempt) {
        if (pmSemaphore::tryToChange(m_semId, -1)) {
            LOG(DEBUG, "Semaphore acquired by %s", m_owner.c_str());
            return;
        }
        if (attempt < pmSemaphore::MAX_ATTEMPTS) {
            sleep(pmSemaphore::ATTEMPT_PAUSE_S);
        }
    }
    pmSemaphore::setValue(m_semId, pmSemaphore::TAKEN);
    LOG(ERROR, "Semaphore locked a long time - continue without the lock");
}

PmMutexLock::~PmMutexLock()
{
    // Raised only from 0: after a takeover, the slow holder and the new one both release the lock,
    // and the value must not exceed 1. A failed look at it is not 0 either.
    if (pmSemaphore::value(m_semId) == pmSemaphore::TAKEN) {
        pmSemaphore::tryToChange(m_semId, +1);
    } else {
        LOG(DEBUG, "Cannot unlock Semaphore");
    }
    LOG(DEBUG, "Semaphore released by %s", m_owner.c_str());
}
