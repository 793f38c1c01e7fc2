// The lock on the power monitor for programs that would rather end than go on without it. It is the
// lock of PmMutexLock, with other manners. `pmfile read` holds it while it reads.
#pragma once

#include <optional>
#include <string>

#include "signalsWait.h"

/// Holds the lock from the end of its construction until it is released. While it waits, INT, TERM,
/// HUP and QUIT end the program at once; while it holds the lock they wait.
class ChipLock {
public:
    /// Called once, after a second of waiting, with what is waited for.
    using TellWaiting = void (*)(const std::string& what);

    /// Waits for the lock for up to 20 s, and then takes it from a holder that is gone. Others may
    /// take it from this one in the same way, if it holds the lock that long: see isHeld().
    explicit ChipLock(TellWaiting tellWaiting);

    /// Releases the lock, if that was not done.
    ~ChipLock();

    ChipLock(const ChipLock&) = delete;
    ChipLock& operator=(const ChipLock&) = delete;

    /// Whether the lock was acquired and no one has taken it over since. If not, error() tells why,
    /// and nothing may be written to the chip.
    bool isHeld();

    /// Releases the lock. False if someone has taken it over; then it is left alone.
    bool release();

    /// Why the lock is not held.
    const std::string& error() const { return m_error; }

private:
    bool attempt();
    void takeOver();

    int m_semId;
    std::string m_error;
    std::optional<SignalsWait> m_signalsWait; ///< there while the lock is held
};
