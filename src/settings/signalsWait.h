// Keeps the signals that people end or stop programs with from leaving something half done: a
// file, a lock.
#pragma once

#include <csignal>

/// INT, TERM, HUP, QUIT and TSTP wait while it exists.
class SignalsWait {
public:
    SignalsWait()
    {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
            sigaddset(&signals, signal);
        }
        sigprocmask(SIG_BLOCK, &signals, &m_before);
    }
    ~SignalsWait() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsWait(const SignalsWait&) = delete;
    SignalsWait& operator=(const SignalsWait&) = delete;

private:
    sigset_t m_before = {};
};
