#include "session.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace virtualboard {

namespace {

Session* mapSession(int fd)
{
    void* memory = mmap(nullptr, sizeof(Session), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<Session*>(memory);
}

Session* openSession(const char* path)
{
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    struct stat status = {};
    Session* session = nullptr;
    if (fstat(fd, &status) == 0) {
        errno = EINVAL; // unless this is a session of this version
        if (status.st_size == static_cast<off_t>(sizeof(Session))) {
            session = mapSession(fd);
        }
    }
    const int reason = errno;
    close(fd);
    errno = reason;
    return session;
}

// Returns 0 or the errno. A line cut short is a full disk.
int writeWhole(int fd, const std::string& line)
{
    ssize_t written = -1;
    do {
        written = write(fd, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    if (written < 0) {
        return errno;
    }
    return static_cast<std::size_t>(written) == line.size() ? 0 : ENOSPC;
}

} // namespace

Fault* strikingFault(Session& session, FaultKind kind, int code, int page)
{
    const auto strikes = [&](const Fault& fault) {
        return fault.kind == kind && session.transfers >= fault.first
               && session.transfers <= fault.last && session.transfers % fault.every == 0
               && (fault.code == ANY || fault.code == code)
               && (fault.page == ANY || fault.page == page) && fault.times > 0;
    };
    Fault* const end = session.faults + session.faultCount;
    Fault* const fault = std::find_if(session.faults, end, strikes);
    if (fault == end) {
        return nullptr;
    }
    --fault->times; // ALWAYS outlasts every run
    return fault;
}

Session* shareSession(const Session& session, std::string& path, std::string& error)
{
    const char* folder = std::getenv("TMPDIR");
    std::error_code ignored; // a path that can't be made absolute can't be opened either
    path =
        std::filesystem::absolute(folder != nullptr && *folder != '\0' ? folder : "/tmp", ignored)
        / "virtual-board.XXXXXX";
    const int fd = mkostemp(path.data(), O_CLOEXEC);
    Session* shared = nullptr;
    if (fd >= 0 && ftruncate(fd, sizeof(Session)) == 0) {
        shared = mapSession(fd);
    }
    if (shared == nullptr) {
        error = "cannot share the session " + path + ": " + std::strerror(errno);
    } else {
        *shared = session;
    }
    if (fd >= 0) {
        close(fd);
    }
    return shared;
}

Session* joinSession()
{
    static Session* const joined = [] {
        const int callersErrno = errno;
        const char* path = std::getenv(SESSION_VARIABLE);
        Session* session = path == nullptr ? nullptr : openSession(path);
        if (path != nullptr && session == nullptr) {
            std::fprintf(stderr, "virtual-board: cannot use the session %s: %s\n", path,
                         std::strerror(errno));
            _exit(EXIT_FAILURE);
        }
        errno = callersErrno;
        return session;
    }();
    return joined;
}

void appendLine(const Session& session, const char* log, const std::string& line)
{
    std::string text = line + '\n';
    if (session.showPid) {
        text.insert(0, "[" + std::to_string(getpid()) + "] ");
    }
    if (std::strcmp(log, "-") == 0) {
        writeWhole(STDERR_FILENO, text);
        return; // a closed stderr has nowhere to complain
    }
    const int fd = open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    const int error = fd < 0 ? errno : writeWhole(fd, text);
    if (fd >= 0) {
        close(fd);
    }
    static bool complained = false;
    if (error != 0 && !complained) {
        complained = true;
        std::fprintf(stderr, "virtual-board: cannot write %s: %s\n", log, std::strerror(error));
    }
}

} // namespace virtualboard
