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

#include "descriptor.h"

namespace virtualboard {

namespace {

std::string fileOf(const char* folder)
{
    return std::string(folder) + "/session";
}

Session* openSession(const char* folder)
{
    const int fd = openAboveStreams(fileOf(folder).c_str(), O_RDWR);
    if (fd < 0) {
        return nullptr;
    }
    struct stat status = {};
    void* memory = MAP_FAILED;
    if (fstat(fd, &status) == 0) {
        errno = EINVAL; // unless this is a session of this version
        if (status.st_size == static_cast<off_t>(sizeof(Session))) {
            memory = mmap(nullptr, sizeof(Session), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        }
    }
    closeKeepingErrno(fd);
    return memory == MAP_FAILED ? nullptr : static_cast<Session*>(memory);
}

// Returns 0 or the errno. A line that is written only in part means a full disk.
int writeWhole(int fd, const std::string& line)
{
    const ssize_t written = TEMP_FAILURE_RETRY(write(fd, line.data(), line.size()));
    return written < 0 ? errno : static_cast<std::size_t>(written) == line.size() ? 0 : ENOSPC;
}

// Makes the folder's file with room for the session. Returns 0 or the errno: a file that only seems
// to have room would end the process when it is written to.
int makeFile(const char* folder)
{
    const int fd = open(fileOf(folder).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        return errno;
    }
    const int error = posix_fallocate(fd, 0, sizeof(Session));
    close(fd);
    return error;
}

} // namespace

FileLock takeTurn(const Session& session)
{
    return FileLock(fileOf(session.folder).c_str());
}

Fault* strikingFault(Session& session, FaultKind kind, int code, int page, int supply)
{
    const auto strikes = [&](const Fault& fault) {
        return fault.kind == kind && session.transfers >= fault.first
               && session.transfers <= fault.last && session.transfers % fault.every == 0
               && (fault.code == ANY || fault.code == code)
               && (fault.page == ANY || fault.page == page) && fault.supply == supply
               && fault.times > 0;
    };
    Fault* const end = session.faults + session.faultCount;
    Fault* const fault = std::find_if(session.faults, end, strikes);
    if (fault == end) {
        return nullptr;
    }
    fault->struck = true;
    --fault->times; // ALWAYS is more than any run has
    return fault;
}

Session* shareSession(const Session& session, std::string& error)
{
    const char* named = std::getenv("TMPDIR");
    std::error_code ignored; // a path that can't be made absolute can't be made a folder either
    const auto parent =
        std::filesystem::absolute(named != nullptr && *named != '\0' ? named : "/tmp", ignored);
    std::string folder = parent / "virtual-board.XXXXXX";
    Session* shared = nullptr;
    if (folder.size() + NAME_MAX >= PATH_MAX) {
        errno = ENAMETOOLONG;
    } else if (mkdtemp(folder.data()) != nullptr) {
        const int full = makeFile(folder.c_str());
        shared = full == 0 ? openSession(folder.c_str()) : nullptr;
        const int reason = full == 0 ? errno : full;
        if (shared == nullptr) {
            std::filesystem::remove_all(folder, ignored);
        }
        errno = reason;
    }
    if (shared == nullptr) {
        error = "cannot share the session in " + parent.string() + ": " + std::strerror(errno);
        return nullptr;
    }
    *shared = session;
    std::memcpy(shared->folder, folder.c_str(), folder.size() + 1);
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
        return; // stderr itself is closed: there is nowhere to report it
    }
    const int fd = openAboveStreams(log, O_WRONLY | O_APPEND | O_CREAT);
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
