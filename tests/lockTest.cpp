#include "pmMutexLock.h"

#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <fstream>

#include "chipLock.h"
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

/// Tells on the transcript, with whether signals wait.
void tellHere(const std::string& what)
{
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    fakeSystem.transcript +=
        (sigismember(&blocked, SIGTERM) + sigismember(&blocked, SIGTSTP) == 2 ? "signals wait: " : "") + what + "\n";
}

TEST_F(LockTest, OfThoseWhoWouldRatherEndThanGoOnWithout)
{
    constexpr int OTHER = 0x7FFFFFFF; // no process
    const int zombie = fork();
    if (zombie == 0) {
        _exit(0);
    }
    siginfo_t ended;
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(zombie), &ended, WEXITED | WNOWAIT));

    const auto fails = [](int holder, std::deque<int> then) {
        then.insert(then.begin(), {-EEXIST, 42, -EAGAIN, holder, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, holder});
        return then;
    };
    const std::string who = "process 2147483647";
    const std::string opened = CREATE + OPEN_SET;
    const std::string look = "semctl 42 0 GETPID\n";
    const std::string gone = "signals wait: held\n" + look + "semop 42: 0 +1 flags 2048, 1\n";
    const std::string lost = who + " took the lock of the power monitor over\n";
    const auto waits = [&](const std::string& holder) {
        return opened + TAKE + "sleep 1\n" + look + "waiting for the lock of the power monitor, which " + holder
               + " took\nsleep 4\n" + WAIT + WAIT + WAIT + TAKE + look;
    };
    const std::string alive = " has the lock of the power monitor: let it end first (if it does not use the chip, "
                              "`pmadmin -a` frees the lock)\n";
    const std::string asks = "kill 2147483647 0\n";
    const std::string takes = "semctl 42 0 SETVAL 0\nusleep 100000\n" + look;
    std::string name;
    std::ifstream("/proc/self/comm") >> name;
    const std::string dead = "process " + std::to_string(zombie);
    const std::pair<std::deque<int>, std::string> cases[] = {
        {{-EEXIST, 42}, opened + TAKE + look + gone},
        {{-EEXIST, 42, 0, getpid(), OTHER}, opened + TAKE + look + "signals wait: held\n" + look + lost},
        {{-EEXIST, 42, -EAGAIN, OTHER},
         opened + TAKE + "sleep 1\n" + look + "waiting for the lock of the power monitor, which " + who
             + " took\nsleep 4\n" + TAKE + look + gone},
        {fails(OTHER, {0}), waits(who) + asks + who + alive},
        {fails(OTHER, {-EPERM}), waits(who) + asks + who + alive},
        {fails(0, {}), waits("an unknown process") + "an unknown process" + alive},
        {fails(OTHER, {-ESRCH}), waits(who) + asks + takes + look + gone},
        {fails(OTHER, {-ESRCH, 0, OTHER}), waits(who) + asks + takes + lost},
        {fails(zombie, {}), waits(dead + " (" + name + ")") + "kill" + dead.substr(7) + " 0\n" + takes + look + gone},
        {{-EEXIST, -EACCES}, opened + "the lock of the power monitor can't be had: Permission denied\n"},
        {{-EEXIST, 42, -EIDRM}, opened + TAKE + "the lock of the power monitor can't be had: Identifier removed\n"},
    };
    for (const auto& [results, expected] : cases) {
        fakeSystem.results = results;
        EXPECT_EQ(expected, record([] {
                      ChipLock lock(tellHere);
                      tellHere(lock.isHeld() ? "held" : lock.error());
                      if (!lock.release() && fakeSystem.transcript.find("held") != std::string::npos) {
                          tellHere(lock.error());
                      }
                  }));
    }
    waitpid(zombie, nullptr, 0);
}

} // namespace
