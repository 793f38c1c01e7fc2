#include "pmMutexLock.h"

#include <sys/sem.h>
#include <unistd.h>

#include "log.h"

namespace {

/// Fourth argument of semctl. The program must define it and pass the union: where unions are
/// passed in memory, a plain int would be taken for an address.
union semun {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

constexpr int ALL_MAY_USE = 0666;
constexpr int FREE = 1;
constexpr int TAKEN = 0;

/// Together 20 s: longer than any holder needs, so that a holder is probably dead by then.
constexpr int MAX_ATTEMPTS = 5;
constexpr unsigned int ATTEMPT_PAUSE_S = 5;

void setValue(int semId, int value)
{
    semun argument{};
    argument.val = value;
    semctl(semId, 0, SETVAL, argument);
}

/// Adds `change` to the semaphore, without waiting. It does not use SEM_UNDO: the other users of
/// the chip recover a dead holder's lock as this class does.
bool tryToChange(int semId, short change)
{
    sembuf operation{0, change, IPC_NOWAIT};
    return semop(semId, &operation, 1) == 0;
}

} // namespace

PmMutexLock::PmMutexLock(const char* owner) : m_semId(-1), m_owner(owner)
{
    acquire();
}

PmMutexLock::PmMutexLock(const char* owner, bool& held) : m_semId(-1), m_owner(owner)
{
    held = acquire();
}

// The constructors' work, in whose name it logs. False if they continue without the lock.
bool PmMutexLock::acquire()
{
    m_semId = semget(PM_MUTEX_KEY, 1, IPC_CREAT | IPC_EXCL | ALL_MAY_USE);
    if (m_semId >= 0) {
        // Only the creator of a set gives it its first value.
        setValue(m_semId, FREE);
    } else {
        m_semId = semget(PM_MUTEX_KEY, 1, IPC_CREAT | ALL_MAY_USE);
        if (m_semId < 0) {
            LOG_AS("PmMutexLock", ERROR, "Cannot get semaphore for %s", m_owner.c_str());
            LOG_AS("PmMutexLock", DEBUG, "Cannot acquire semaphore for %s", m_owner.c_str());
            return false;
        }
    }

    for (int attempt = 1; attempt <= MAX_ATTEMPTS; ++attempt) {
        if (tryToChange(m_semId, -1)) {
            LOG_AS("PmMutexLock", DEBUG, "Semaphore acquired by %s", m_owner.c_str());
            return true;
        }
        if (attempt < MAX_ATTEMPTS) {
            sleep(ATTEMPT_PAUSE_S);
        }
    }
    setValue(m_semId, TAKEN);
    LOG_AS("PmMutexLock", ERROR, "Semaphore locked a long time - continue without the lock");
    return false;
}

PmMutexLock::~PmMutexLock()
{
    // Raised only from 0: after a takeover, the slow holder and the new one both release the lock,
    // and the value must not exceed 1. A failed GETVAL is not 0 either.
    if (semctl(m_semId, 0, GETVAL) == TAKEN) {
        tryToChange(m_semId, +1);
    } else {
        LOG(DEBUG, "Cannot unlock Semaphore");
    }
    LOG(DEBUG, "Semaphore released by %s", m_owner.c_str());
}
