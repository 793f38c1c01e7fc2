#include "isolation.h"

#include <fcntl.h>
#include <glob.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <vector>

#include "descriptor.h"

namespace virtualboard {

namespace {

constexpr const char* BUSES = "/dev/i2c-*";
constexpr const char* NOTHING = "/dev/null";

bool writeFile(const char* path, const std::string& text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    const bool written =
        fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (fd >= 0) {
        closeKeepingErrno(fd);
    }
    return written;
}

// A namespace of users, in which everyone may mount, with the caller's own identity in it. Programs
// with the set-user-id bit could not change the user there, and must fail visibly.
bool enterUserNamespace()
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeFile("/proc/self/setgroups", "deny")
           && writeFile("/proc/self/uid_map", user + " " + user + " 1")
           && writeFile("/proc/self/gid_map", group + " " + group + " 1")
           && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

// Later mounts stay in this namespace. In a chroot the root may not be a mount.
bool keepMounts()
{
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
           || (errno == EINVAL
               && mount("none", "/dev", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
}

// What the caller can't reach, such as a link that leads nowhere, the command can't open either.
bool isBus(const char* path)
{
    struct stat status = {};
    return stat(path, &status) == 0 && !S_ISDIR(status.st_mode);
}

bool hide(const std::vector<const char*>& paths)
{
    return (unshare(CLONE_NEWNS) == 0 || enterUserNamespace()) && keepMounts()
           && std::all_of(paths.begin(), paths.end(), [](const char* path) {
                  return mount(NOTHING, path, nullptr, MS_BIND, nullptr) == 0;
              });
}

} // namespace

bool hideBuses(std::string& error)
{
    glob_t found = {};
    const int result = glob(BUSES, GLOB_NOSORT | GLOB_ERR, nullptr, &found);
    std::vector<const char*> buses;
    std::copy_if(found.gl_pathv, found.gl_pathv + found.gl_pathc, std::back_inserter(buses), isBus);
    const bool listed = result == 0 || result == GLOB_NOMATCH;
    const bool hidden = listed && (buses.empty() || hide(buses));
    if (!hidden) {
        const int reason = errno;
        error = std::string("cannot hide the machine's own ") + BUSES + ": " + std::strerror(reason)
                + (reason == EPERM ? "; run it as root" : "");
    }
    globfree(&found);
    return hidden;
}

} // namespace virtualboard
