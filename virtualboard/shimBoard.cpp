// What the shim answers in place of a board: the board's lock, the hardware version, and the trace
// level that the run asks for.
#include "shim.h"

#include <sys/sem.h>

#include <cerrno>
#include <cstdio>

#include "board.h"
#include "boardUtils.h"
#include "pmMutexLock.h"
#include "session.h"
#include "trace.h"

using namespace virtualboard;

// The lock is a semaphore of the kernel; each board has its own.
extern "C" INTERPOSED int semget(key_t key, int count, int flags) noexcept
{
    const Session* session = joinSession();
    if (session != nullptr && key == PM_MUTEX_KEY) {
        const BoardAccess board(session->board);
        if (!board.isOpen()) {
            std::fprintf(stderr, "virtual-board: %s\n", board.error().c_str());
            errno = EACCES;
            return -1;
        }
        key = board.privateKey(key);
    }
    return next<int(key_t, int, int)>("semget")(key, count, flags);
}

// The board's libraries are C++: their symbols follow from the declarations.

INTERPOSED TraceObject::TraceObject(const char* identity, int level) : m_settings(nullptr)
{
    // As the Itanium C++ ABI names this constructor.
    if (auto* real = next<void(TraceObject*, const char*, int)>("_ZN11TraceObjectC1EPKci")) {
        real(this, identity, level);
    }
    const Session* session = joinSession();
    if (session != nullptr && session->setTraceLevel && m_settings != nullptr) {
        m_settings->level = session->traceLevel;
    }
}

INTERPOSED int boardUtils::getVersion(int& version)
{
    const Session* session = joinSession();
    if (session == nullptr) {
        auto* real = next<int(boardUtils*, int&)>("_ZN10boardUtils10getVersionERi");
        return real == nullptr ? 0 : real(this, version);
    }
    const BoardAccess board(session->board);
    return board.isOpen() && board.hardwareVersion(version) ? 1 : 0;
}
