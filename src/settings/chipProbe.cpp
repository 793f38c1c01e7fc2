#include "chipProbe.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "command.h"
#include "text.h"

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

    /// The kernel's number of the bus, whatever its device is called: the minor device number.
    /// Empty if it is no device of the kernel's.
    std::optional<unsigned int> number() const
    {
        struct stat status = {};
        if (fstat(m_fd, &status) != 0 || !S_ISCHR(status.st_mode)) {
            return std::nullopt;
        }
        return minor(status.st_rdev);
    }

private:
    int m_fd = -1;
};

/// The driver that has taken the chip's address and, where the kernel names it, how to release
/// that.
std::string describeDriver(const Bus& bus)
{
    constexpr const char* UNNAMED = "a kernel driver";
    const std::optional<unsigned int> number = bus.number();
    if (!number) {
        return UNNAMED;
    }
    const std::string device = formatted("%u-%04x", *number, unsigned{Command::CHIP_ADDRESS});
    const std::string link = "/sys/bus/i2c/devices/" + device + "/driver";
    char target[PATH_MAX];
    const ssize_t length = readlink(link.c_str(), target, sizeof(target));
    if (length <= 0) {
        return UNNAMED;
    }
    const std::string path(target, static_cast<std::size_t>(length));
    return formatted("the kernel driver %s (as root, `echo %s >%s/unbind` releases it)",
                     path.substr(path.rfind('/') + 1).c_str(), device.c_str(), link.c_str());
}

} // namespace

std::optional<std::uint8_t> probeSelectedPage(int bus, std::string& error)
{
    const std::string path = "/dev/i2c-" + std::to_string(bus);
    const Bus device(path);
    if (device.fd() < 0) {
        error = formatted("%s can't be opened: %s", path.c_str(), std::strerror(errno));
        return std::nullopt;
    }
    if (!device.bind()) {
        const int reason = errno;
        error = reason == EBUSY ? formatted("the address 0x74 of %s is taken by %s", path.c_str(),
                                            describeDriver(device).c_str())
                                : formatted("the address 0x74 of %s can't be used: %s",
                                            path.c_str(), std::strerror(reason));
        return std::nullopt;
    }
    Page selection;
    if (!selection.read(device.fd(), Command::ALL_PAGES)) {
        error = formatted("the power monitor does not answer on %s: %s", path.c_str(),
                          std::strerror(errno));
        return std::nullopt;
    }
    return selection.getByte();
}
