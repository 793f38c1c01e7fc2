#include "selectedPage.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "commandCatalogue.h"
#include "text.h"

namespace {

constexpr unsigned int HIGHEST_BUS = 255;

/// The driver that has taken the chip's address and, where the kernel names it, how to release
/// that.
std::string describeDriver(int fd)
{
    constexpr const char* UNNAMED = "a kernel driver";
    struct stat status = {};
    if (fstat(fd, &status) != 0 || !S_ISCHR(status.st_mode)) {
        return UNNAMED;
    }
    // The kernel's number of the bus, whatever its device is called, is the minor device number.
    const std::string device = formatted("%u-%04x", minor(status.st_rdev),
                                         static_cast<unsigned int>(Command::CHIP_ADDRESS));
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

std::string takeBus(std::string_view text, int& bus)
{
    const auto number = takeNumber(text, 0, HIGHEST_BUS);
    bus = static_cast<int>(number.value_or(0));
    return number ? "" : "--bus takes the number of an I2C bus, from 0 to 255";
}

SelectedPage::SelectedPage(const std::string& path)
{
    do {
        m_fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    } while (m_fd == -1 && errno == EINTR);
}

SelectedPage::~SelectedPage()
{
    if (m_fd >= 0) {
        close(m_fd);
    }
}

bool SelectedPage::bind() const
{
    int result = 0;
    do {
        result = ioctl(m_fd, I2C_SLAVE, static_cast<long>(Command::CHIP_ADDRESS));
    } while (result == -1 && errno == EINTR);
    return result >= 0;
}

std::unique_ptr<SelectedPage> SelectedPage::find(int bus, std::string& error)
{
    const std::string path = "/dev/i2c-" + std::to_string(bus);
    std::unique_ptr<SelectedPage> found(new SelectedPage(path));
    if (found->m_fd < 0) {
        error = formatted("%s can't be opened: %s", path.c_str(), std::strerror(errno));
        return nullptr;
    }
    if (!found->bind()) {
        const int reason = errno;
        error = reason == EBUSY ? formatted("the address 0x74 of %s is taken by %s", path.c_str(),
                                            describeDriver(found->m_fd).c_str())
                                : formatted("the address 0x74 of %s can't be used: %s",
                                            path.c_str(), std::strerror(reason));
        return nullptr;
    }
    Page selection;
    if (!selection.read(found->m_fd, Command::ALL_PAGES)) {
        error = formatted("the power monitor does not answer on %s: %s", path.c_str(),
                          std::strerror(errno));
        return nullptr;
    }
    found->m_page = selection.getByte();
    return found;
}

bool SelectedPage::restore(ChipLock& lock, std::string& error) const
{
    if (!lock.isHeld()) {
        error = lock.error();
        return false;
    }
    Page selection;
    errno = EINVAL;
    if (!catalogue::isPage(m_page) || !selection.write(m_fd, m_page)) {
        error = formatted("the page that was selected before, %d, can't be selected again: %s",
                          m_page, std::strerror(errno));
        return false;
    }
    return true;
}
