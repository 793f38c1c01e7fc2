#include "max34460.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "log.h"
#include "versionRecord.h"

Max34460::Max34460(const std::string& name, int bus, int address)
    : m_fd(-1),
      m_name(name),
      m_devicePath("/dev/i2c-" + std::to_string(bus)),
      m_bus(bus),
      m_address(address),
      m_hwState(HW_STATE_INIT),
      m_hwError(false),
      m_hwErrorCount(0)
{
    const bool ok = openBus() && readGeneralInfo() && readVersionInfo();
    setHwState(ok ? HW_STATE_OK : HW_STATE_FAILED);
    setHwError(!ok);
}

Max34460::~Max34460()
{
    // 0 would be standard input, which this object does not own.
    if (m_fd > 0) {
        close(m_fd);
    }
}

bool Max34460::isHwOk() const
{
    return m_hwState == HW_STATE_OK;
}

// A step of the constructor, in whose name it logs: opens the device and binds it to the chip's
// address. The descriptor stays open when the binding fails.
bool Max34460::openBus()
{
    do {
        m_fd = open(m_devicePath.c_str(), O_RDWR);
    } while (m_fd == -1 && errno == EINTR);
    if (m_fd < 0) {
        LOG_AS("Max34460", ERROR, "Cannot open I2C driver %s: %s", m_devicePath.c_str(),
               std::strerror(errno));
        return false;
    }

    int result;
    do {
        result = ioctl(m_fd, I2C_SLAVE, static_cast<long>(m_address));
    } while (result == -1 && errno == EINTR);
    if (result < 0) {
        LOG_AS("Max34460", ERROR, "Cannot access I2C driver: %s", std::strerror(errno));
        return false;
    }
    return true;
}

bool Max34460::readGeneralInfo()
{
    Page page;
    if (!page.write(m_fd, Command::ALL_PAGES)) {
        LOG(ERROR, "Page command failed");
        return false;
    }
    if (!m_mfrId.read(m_fd, Command::ALL_PAGES) || !m_mfrModel.read(m_fd, Command::ALL_PAGES)
        || !m_mfrRevision.read(m_fd, Command::ALL_PAGES)) {
        LOG(ERROR, "Cannot read id and model");
        return false;
    }
    // The revisions are characters: hardware in the high byte, firmware in the low.
    LOG(DEBUG2, "Id %#x, model %#x, HW revision %c, FW revision %c", m_mfrId.getByte(),
        m_mfrModel.getByte(), m_mfrRevision.getWord() >> 8, m_mfrRevision.getWord() & 0xFF);
    return true;
}

bool Max34460::readVersionInfo()
{
    Page page;
    if (!page.write(m_fd, Command::ALL_PAGES)) {
        LOG(ERROR, "Page command failed");
        return false;
    }
    if (!m_mfrDate.read(m_fd, Command::ALL_PAGES)) {
        LOG(ERROR, "Cannot read power settings version");
        return false;
    }
    LOG(DEBUG2, "power settings version v%d.%d, minimum HW version %d", majorVersion(m_mfrDate),
        minorVersion(m_mfrDate), minimumHwVersion(m_mfrDate));
    return true;
}

void Max34460::setHwState(int state)
{
    if (state != m_hwState) {
        LOG(DEBUG, "State changed from %d to %d", m_hwState, state);
    }
    m_hwState = state;
}

void Max34460::setHwError(bool error)
{
    if (error != m_hwError) {
        if (error) {
            ++m_hwErrorCount;
            LOG(ERROR, "Error set, m_hwErrorCount = %d", m_hwErrorCount);
        } else {
            LOG(INFO, "Error cleared");
        }
    }
    m_hwError = error;
}
