#include "pmSemaphore.h"

#include <sys/sem.h>

namespace pmSemaphore {

namespace {

/// Fourth argument of semctl. The program must define it and pass the union: where unions are
/// passed in memory, a plain int would be taken for an address.
union semun {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

constexpr int ALL_MAY_USE = 0666;

} // namespace

int open()
{
    const int made = semget(PM_MUTEX_KEY, 1, IPC_CREAT | IPC_EXCL | ALL_MAY_USE);
    if (made < 0) {
        return semget(PM_MUTEX_KEY, 1, IPC_CREAT | ALL_MAY_USE);
    }
    // Only the creator of a set gives it its first value.
    setValue(made, FREE);
    return made;
}

void setValue(int semId, int value)
{
    semun argument{};
    argument.val = value;
    semctl(semId, 0, SETVAL, argument);
}

bool tryToChange(int semId, short change)
{
    sembuf operation{0, change, IPC_NOWAIT};
    return semop(semId, &operation, 1) == 0;
}

int value(int semId)
{
    return semctl(semId, 0, GETVAL);
}

int lastProcess(int semId)
{
    return semctl(semId, 0, GETPID);
}

} // namespace pmSemaphore
