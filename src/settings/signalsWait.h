// Keeps the signals that people end or stop programs with from leaving something half done: a
// file, a lock, an upgrade.
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

/// Lets a handler take the signals that end a program, INT, TERM and HUP; a call that waits ends
/// then. Who started the program with one of them ignored, meant that.
inline void handleEnding(void (*handler)(int))
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            action.sa_handler = handler;
            action.sa_flags = 0;
            sigaction(signal, &action, nullptr);
        }
    }
}
