#include "isolation.h"

#include <fcntl.h>
#include <glob.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace virtualboard {

namespace {

constexpr const char* BUSES = "/dev/i2c-*";
constexpr const char* NOTHING = "/dev/null";

bool writeFile(const char* path, const std::string& text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    const bool written =
        fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const int reason = errno;
    if (fd >= 0) {
        close(fd);
    }
    errno = reason;
    return written;
}

// A namespace of users, in which everyone may mount, with the caller's own identity in it. Programs
// with the set-user-id bit could not become anybody else there: they are to fail aloud.
bool enterUserNamespace()
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeFile("/proc/self/setgroups", "deny")
           && writeFile("/proc/self/uid_map", user + " " + user + " 1")
           && writeFile("/proc/self/gid_map", group + " " + group + " 1")
           && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

// What is mounted from here on stays in this namespace. In a chroot the root may be no mount.
bool keepMounts()
{
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
           || (errno == EINVAL
               && mount("none", "/dev", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
}

bool hide(const char* path)
{
    return mount(NOTHING, path, nullptr, MS_BIND, nullptr) == 0;
}

} // namespace

bool hideBuses(std::string& error)
{
    glob_t buses = {};
    const int found = glob(BUSES, GLOB_NOSORT | GLOB_ERR, nullptr, &buses);
    bool hidden =
        found == GLOB_NOMATCH
        || (found == 0 && (unshare(CLONE_NEWNS) == 0 || enterUserNamespace()) && keepMounts());
    for (std::size_t i = 0; hidden && i < buses.gl_pathc; ++i) {
        hidden = hide(buses.gl_pathv[i]);
    }
    if (!hidden) {
        error = std::string("cannot hide the machine's own ") + BUSES + ": " + std::strerror(errno)
                + "; run it as root";
    }
    globfree(&buses);
    return hidden;
}

} // namespace virtualboard
