#include "pmMutexLock.h"

#include <cerrno>

#include "fakeSystem.h"

namespace {

using LockTest = SystemTest;

const std::string CREATE = "semget 9f39b 1 7b6\n";
const std::string OPEN = "semget 9f39b 1 3b6\n";
const std::string TAKE = "semop 42: 0 -1 flags 2048, 1\n";
const std::string ACQUIRED =
    "<7>[DEBUG] pmMutexLock.cpp (PmMutexLock) - Semaphore acquired by me\n";
const std::string RAISED = "semctl 42 0 GETVAL\nsemop 42: 0 +1 flags 2048, 1\n";
const std::string CANNOT = "<7>[DEBUG] pmMutexLock.cpp (~PmMutexLock) - Cannot unlock Semaphore\n";
const std::string RELEASED =
    "<7>[DEBUG] pmMutexLock.cpp (~PmMutexLock) - Semaphore released by me\n";

TEST_F(LockTest, Transcripts)
{
    const std::string wait = TAKE + "sleep 5\n";
    const struct {
        const char* name;
        std::deque<int> results;
        std::string expected;
    } cases[] = {
        {"no set yet",
         {42, 0, 0, 0, 0},
         CREATE + "semctl 42 0 SETVAL 1\n" + TAKE + ACQUIRED + RAISED + RELEASED},
        {"free", {-EEXIST, 42, 0, 0, 0}, CREATE + OPEN + TAKE + ACQUIRED + RAISED + RELEASED},
        {"an identifier of 0",
         {-EEXIST, 0, 0, 1},
         CREATE + OPEN + "semop 0: 0 -1 flags 2048, 1\n" + ACQUIRED + "semctl 0 0 GETVAL\n" + CANNOT
             + RELEASED},
        {"given back after two attempts",
         {-EEXIST, 42, -EAGAIN, -EINTR, 0, 0, 0},
         CREATE + OPEN + wait + wait + TAKE + ACQUIRED + RAISED + RELEASED},
        {"taken over at the fifth attempt",
         {-EEXIST, 42, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, 0, 0, 0},
         CREATE + OPEN + wait + wait + wait + wait + TAKE
             + "semctl 42 0 SETVAL 0\n"
               "<3>[ERROR] pmMutexLock.cpp (PmMutexLock) - Semaphore locked a long time - continue "
               "without the lock\n"
             + RAISED + RELEASED},
        {"released by somebody else",
         {-EEXIST, 42, 0, 1},
         CREATE + OPEN + TAKE + ACQUIRED + "semctl 42 0 GETVAL\n" + CANNOT + RELEASED},
        {"no semaphore to be had",
         {-EACCES, -EACCES, -EINVAL},
         CREATE + OPEN
             + "<3>[ERROR] pmMutexLock.cpp (PmMutexLock) - Cannot get semaphore for me\n"
               "<7>[DEBUG] pmMutexLock.cpp (PmMutexLock) - Cannot acquire semaphore for me\n"
               "semctl -1 0 GETVAL\n"
             + CANNOT + RELEASED},
    };
    for (const auto& [name, results, expected] : cases) {
        fakeSystem.results = results;
        {
            const PmMutexLock lock("me");
        }
        EXPECT_EQ(expected, transcript()) << name;
    }
}

} // namespace
