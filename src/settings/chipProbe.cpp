#include "chipProbe.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "command.h"

namespace {

/// A descriptor of the bus, closed in the end.
class Bus {
public:
    explicit Bus(const std::string& path)
    {
        do {
            m_fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        } while (m_fd == -1 && errno == EINTR);
    }
    ~Bus()
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    int fd() const { return m_fd; }

    bool bind() const
    {
        int result = 0;
        do {
            result = ioctl(m_fd, I2C_SLAVE, static_cast<long>(Command::CHIP_ADDRESS));
        } while (result == -1 && errno == EINTR);
        return result >= 0;
    }

    /// Where the kernel tells about the chip's address. Empty if the bus is no device of the
    /// kernel's.
    std::string chipFolder() const
    {
        struct stat status = {};
        if (fstat(m_fd, &status) != 0 || !S_ISCHR(status.st_mode)) {
            return "";
        }
        // The kernel's number of the bus, whatever the device is called.
        char name[64];
        std::snprintf(name, sizeof(name), "%u-%04x", minor(status.st_rdev),
                      unsigned{Command::CHIP_ADDRESS});
        return std::string("/sys/bus/i2c/devices/") + name;
    }

private:
    int m_fd = -1;
};

/// The name of the driver that has the chip's address, and how to release it; empty if that is not
/// known.
std::string driverAt(const std::string& chipFolder)
{
    char target[PATH_MAX];
    const ssize_t length = readlink((chipFolder + "/driver").c_str(), target, sizeof(target));
    if (chipFolder.empty() || length <= 0) {
        return "";
    }
    const std::string path(target, static_cast<std::size_t>(length));
    return " " + path.substr(path.rfind('/') + 1) + " (as root, `echo "
           + chipFolder.substr(chipFolder.rfind('/') + 1) + " >" + chipFolder
           + "/driver/unbind` releases it)";
}

} // namespace

std::optional<std::uint8_t> probeSelectedPage(int bus, std::string& error)
{
    const std::string path = "/dev/i2c-" + std::to_string(bus);
    const Bus device(path);
    if (device.fd() < 0) {
        error = path + " can't be opened: " + std::strerror(errno);
        return std::nullopt;
    }
    if (!device.bind()) {
        const int reason = errno;
        error =
            "the address 0x74 of " + path
            + (reason == EBUSY ? " is taken by the kernel's driver" + driverAt(device.chipFolder())
                               : std::string(" can't be used: ") + std::strerror(reason));
        return std::nullopt;
    }
    Page selection;
    if (!selection.read(device.fd(), Command::ALL_PAGES)) {
        error = "the power monitor does not answer on " + path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    return selection.getByte();
}
