#include "pmMutexLock.h"

#include <cerrno>

#include "fakeSystem.h"

namespace {

using LockTest = SystemTest;

const std::string CREATE = "semget 9f39b 1 7b6\n";
const std::string OPEN_SET = "semget 9f39b 1 3b6\n";
const std::string TAKE = "semop 42: 0 -1 flags 2048, 1\n";
const std::string TAKE_0 = "semop 0: 0 -1 flags 2048, 1\n";
const std::string WAIT = TAKE + "sleep 5\n";

const std::string ACQUIRED = "DEBUG PmMutexLock: Semaphore acquired by me\n";
const std::string RELEASED = "DEBUG ~PmMutexLock: Semaphore released by me\n";
const std::string KEPT = "DEBUG ~PmMutexLock: Cannot unlock Semaphore\n" + RELEASED;

TEST_F(LockTest, IsTakenAndGivenBackOrGoneWithout)
{
    const std::pair<std::deque<int>, std::string> cases[] = {
        // No set yet, one that is free, a new and an old one with the identifier 0.
        {{42, 0, 0, 0, 0}, LOCK + ACQUIRED + UNLOCK + RELEASED},
        {{-EEXIST, 42, 0, 0, 0}, CREATE + OPEN_SET + TAKE + ACQUIRED + UNLOCK + RELEASED},
        {{0, 0, 0, 1}, CREATE + "semctl 0 0 SETVAL 1\n" + TAKE_0 + ACQUIRED + "semctl 0 0 GETVAL\n" + KEPT},
        {{-EEXIST, 0, 0, 1}, CREATE + OPEN_SET + TAKE_0 + ACQUIRED + "semctl 0 0 GETVAL\n" + KEPT},
        // Released after two attempts, and taken over at the fifth.
        {{-EEXIST, 42, -EAGAIN, -EINTR, 0, 0, 0},
         CREATE + OPEN_SET + WAIT + WAIT + TAKE + ACQUIRED + UNLOCK + RELEASED},
        {{-EEXIST, 42, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, 0, 0, 0},
         CREATE + OPEN_SET + WAIT + WAIT + WAIT + WAIT + TAKE + "semctl 42 0 SETVAL 0\n"
             + "ERROR PmMutexLock: Semaphore locked a long time - continue without the lock\n" + UNLOCK + RELEASED},
        // No semaphore is available.
        {{-EACCES, -EACCES, -EINVAL},
         CREATE + OPEN_SET + "ERROR PmMutexLock: Cannot get semaphore for me\n"
             + "DEBUG PmMutexLock: Cannot acquire semaphore for me\n" + "semctl -1 0 GETVAL\n" + KEPT},
    };
    for (const auto& [results, expected] : cases) {
        fakeSystem.results = results;
        EXPECT_EQ(expected, record([] { const PmMutexLock lock("me"); }));
    }
}

} // namespace
