#include "output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

std::string because(const std::string& what)
{
    return what + ": " + std::strerror(errno);
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

/// Closes the descriptor; errno is that of the first failure.
bool finish(int fd, bool well)
{
    const int reason = errno;
    const bool closed = close(fd) == 0;
    errno = well ? errno : reason;
    return well && closed;
}

/// The rights of a new file, or those of the one that it replaces.
mode_t modeFor(const struct stat* replaced)
{
    const mode_t mask = umask(0);
    umask(mask);
    return replaced == nullptr ? 0666 & ~mask : replaced->st_mode & 07777;
}

/// Writes beside `path`, then takes its place.
bool replace(const std::string& path, const struct stat* replaced, const std::string& text)
{
    std::string temporary = path + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool written =
        finish(fd, fchmod(fd, modeFor(replaced)) == 0 && writeAll(fd, text) && fsync(fd) == 0);
    if (written && rename(temporary.c_str(), path.c_str()) == 0) {
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

/// What a symbolic link leads to, so that the link stays one.
std::string resolve(const std::string& path)
{
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
    return real == nullptr ? path : real.get();
}

} // namespace

void tell(const std::string& what)
{
    std::fflush(stdout); // what was found before stands before it
    std::fprintf(stderr, "pmfile: %s\n", what.c_str());
}

void tell(const std::string& file, unsigned int line, const std::string& what)
{
    tell(file + ":" + std::to_string(line) + ": " + what);
}

void print(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

int finishOutput(int status)
{
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return status;
    }
    tell(errno == 0 ? "standard output: writing failed" : because("standard output"));
    return STATUS_TROUBLE;
}

bool mayWrite(const std::string& path, const std::vector<std::string>& inputs)
{
    struct stat output = {};
    if (path == "-" || stat(path.c_str(), &output) != 0 || !S_ISREG(output.st_mode)) {
        return true;
    }
    for (const std::string& input : inputs) {
        struct stat status = {};
        const bool known =
            (input == "-" ? fstat(STDIN_FILENO, &status) : stat(input.c_str(), &status)) == 0;
        if (known && status.st_dev == output.st_dev && status.st_ino == output.st_ino) {
            tell(path + ": expected another file than the input, which would be lost");
            return false;
        }
    }
    return true;
}

int writeOutput(const std::string& path, const std::string& text)
{
    if (path == "-") {
        print(text);
        return finishOutput(STATUS_GOOD);
    }
    const std::string target = resolve(path);
    struct stat status = {};
    const bool exists = stat(target.c_str(), &status) == 0;
    const bool written = exists && !S_ISREG(status.st_mode)
                             ? writeDirectly(target, text)
                             : replace(target, exists ? &status : nullptr, text);
    if (!written) {
        tell(because(path + ": cannot be written"));
        return STATUS_TROUBLE;
    }
    return STATUS_GOOD;
}
