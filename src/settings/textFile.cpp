#include "textFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "descriptor.h"
#include "messages.h"
#include "pmDataFile.h"
#include "signalsWait.h"

using pmDataFile::Reading;

namespace {

/// Reports a failed call with its reason.
void tellReason(const std::string& what)
{
    tell(what + ": " + std::strerror(errno));
}

bool writeAll(int fd, const std::string& text)
{
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = write(fd, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

/// Closes what was written, whether that succeeded or not. errno is that of the first failure.
bool finish(int fd, bool well)
{
    if (!well) {
        closeKeepingErrno(fd);
        return false;
    }
    return close(fd) == 0;
}

/// Gives a file, which no one else can open yet, the owner, group and mode of the one that it
/// replaces. Not every user may do that; then no one gains access by it.
void inherit(int fd, const struct stat& replaced)
{
    constexpr mode_t ALL_RIGHTS = 07777;
    const bool owned = fchown(fd, replaced.st_uid, replaced.st_gid) == 0;
    const bool grouped = owned || fchown(fd, static_cast<uid_t>(-1), replaced.st_gid) == 0;
    fchmod(fd, replaced.st_mode & (owned ? ALL_RIGHTS : grouped ? 0777 : S_IRWXU));
}

/// Moves the file to its place. False with EEXIST if there is one that must be kept; on a file
/// system that can't check and rename in one step, it checks first.
bool place(const std::string& temporary, const std::string& path, Existing existing)
{
    if (existing == Existing::KEEP) {
        if (takeFreeName(temporary.c_str(), path.c_str())) {
            return true;
        }
        if (errno == EEXIST || faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
            errno = EEXIST;
            return false;
        }
    }
    return rename(temporary.c_str(), path.c_str()) == 0;
}

/// Writes beside `path`, then takes its place.
bool writeWhole(const std::string& path, const struct stat* replaced, const std::string& text,
                Existing existing)
{
    const bool mayReplace =
        replaced == nullptr || faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
    if (path.empty() || !mayReplace) {
        return false;
    }
    const SignalsWait signalsWait;
    std::string temporary = path + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    if (replaced == nullptr) {
        fchmod(fd, modeOfNewFile());
    } else {
        inherit(fd, *replaced);
    }
    if (finish(fd, writeAll(fd, text) && fsync(fd) == 0) && place(temporary, path, existing)) {
        return true;
    }
    const int reason = errno;
    unlink(temporary.c_str());
    errno = reason;
    return false;
}

bool writeDirectly(const std::string& path, const std::string& text)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    return fd >= 0 && finish(fd, writeAll(fd, text));
}

/// The target of a symbolic link, so that the link is kept, even if nothing is there yet. Empty,
/// with errno set, if it can't be followed.
std::string resolve(const std::string& path)
{
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
    if (real != nullptr) {
        return real.get();
    }
    std::string target = path;
    constexpr int MOST_LINKS = 40; // the kernel's limit
    for (int links = 0; links < MOST_LINKS; ++links) {
        char next[PATH_MAX];
        const ssize_t length = readlink(target.c_str(), next, sizeof(next));
        if (length <= 0) {
            return target;
        }
        const std::string folder = target.substr(0, target.rfind('/') + 1);
        target =
            (next[0] == '/' ? "" : folder) + std::string(next, static_cast<std::size_t>(length));
    }
    errno = ELOOP;
    return "";
}

bool isSameFile(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Also by a name such as /dev/stdout, which may be a file with earlier content.
bool isStandardOutput(const std::string& path)
{
    struct stat named = {};
    struct stat output = {};
    return path == "-"
           || (stat(path.c_str(), &named) == 0 && fstat(STDOUT_FILENO, &output) == 0
               && isSameFile(named, output));
}

void tellExisting(const std::string& path)
{
    tell(path + ": already exists; use --force to replace it");
}

} // namespace

bool readText(const std::string& path, std::string& text, std::string& error)
{
    const bool standard = path == "-";
    const int fd = standard ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const Reading reading = fd < 0 ? Reading::FAILED : pmDataFile::readAll(fd, text);
    if (fd >= 0 && !standard) {
        closeKeepingErrno(fd);
    }
    if (reading == Reading::FAILED) {
        error = path + ": cannot be read: " + std::strerror(errno);
    } else if (reading == Reading::TOO_LARGE) {
        error = path + ": is too large for a PM data file";
    }
    return reading == Reading::WHOLE;
}

bool mayWrite(const std::string& path, const std::vector<std::string>& inputs, Existing existing)
{
    struct stat output = {};
    if (isStandardOutput(path) || stat(path.c_str(), &output) != 0 || !S_ISREG(output.st_mode)) {
        return true;
    }
    for (const std::string& input : inputs) {
        struct stat status = {};
        const bool known =
            (input == "-" ? fstat(STDIN_FILENO, &status) : stat(input.c_str(), &status)) == 0;
        if (known && isSameFile(status, output)) {
            tell(path + ": is the input, which would be lost");
            return false;
        }
    }
    if (existing == Existing::KEEP) {
        tellExisting(path);
        return false;
    }
    return true;
}

bool writeFile(const std::string& path, const std::string& text, Existing existing)
{
    struct stat status = {};
    const bool exists = stat(path.c_str(), &status) == 0;
    return exists && !S_ISREG(status.st_mode)
               ? writeDirectly(path, text)
               : writeWhole(resolve(path), exists ? &status : nullptr, text, existing);
}

int writeOutput(const std::string& path, const std::string& text, Existing existing)
{
    if (isStandardOutput(path)) {
        print(text);
        return finishOutput(STATUS_GOOD);
    }
    if (writeFile(path, text, existing)) {
        return STATUS_GOOD;
    }
    if (errno == EEXIST) {
        tellExisting(path);
    } else {
        tellReason(path + ": cannot be written");
    }
    return STATUS_TROUBLE;
}

void tellUnwritten(const std::string& path)
{
    struct stat status = {};
    const bool exists = stat(path.c_str(), &status) == 0;
    if (isStandardOutput(path) || (exists && !S_ISREG(status.st_mode))) {
        tell("no file was made");
    } else {
        tell(path + (exists ? " is left as it was" : " was not made"));
    }
}
