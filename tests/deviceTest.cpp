#include "max34460.h"

#include <cerrno>

#include "fakeSystem.h"

namespace {

using DeviceTest = SystemTest;

struct Device : Max34460 {
    explicit Device(int bus = 0) : Max34460("Device", bus, 0x74) {}
    using Max34460::m_hwErrorCount;
    using Max34460::m_hwState;
    using Max34460::m_mfrDate;
    using Max34460::m_mfrId;
    using Max34460::m_mfrModel;
    using Max34460::m_mfrRevision;
    using Max34460::setHwError;
};

const std::string OPEN = "open /dev/i2c-0 flags 2\n";
const std::string BIND = "ioctl 1000 703 0x74\n";
const std::string PAGE = "smbus 1000 write size 2: 00 ff\n";
const std::string ID = "smbus 1000 read size 2: 99\n";
const std::string MODEL = "smbus 1000 read size 2: 9a\n";
const std::string REVISION = "smbus 1000 read size 3: 9b\n";
const std::string DATE = "rdwr 1000 74 flags 0 len 1: 9d 74 flags 1 len 8\n";
const std::string IDENTITY = "<7>[DEBUG2] max34460.cpp (readGeneralInfo) - Id 0x4d, model 0x5a, HW "
                             "revision A, FW revision 1\n";
const std::string VERSION = "<7>[DEBUG2] max34460.cpp (readVersionInfo) - "
                            "power settings version v2.5, minimum HW version 3\n";
const std::string FAILED = "<7>[DEBUG] max34460.cpp (setHwState) - State changed from 0 to 2\n"
                           "<3>[ERROR] max34460.cpp (setHwError) - Error set, m_hwErrorCount = 1\n";

/// Drops the lines of single attempts: they are the commands' own.
std::string withoutRetries(const std::string& text)
{
    std::string kept;
    std::string last;
    for (std::size_t at = 0, end; at < text.size(); at = end + 1) {
        end = text.find('\n', at);
        const std::string line = text.substr(at, end + 1 - at);
        const bool repeated = line == last && line.find("open") != 0 && line.find("ioctl") != 0;
        if (line.find("[WARNING]") == std::string::npos && line.find("usleep") != 0 && !repeated) {
            kept += line;
            last = line;
        }
    }
    return kept;
}

TEST_F(DeviceTest, AStartThatSucceeds)
{
    fakeSystem.bus = {0x4D, 0x5A, '1', 'A', 5, 2, 3};
    {
        const Device device;
        EXPECT_TRUE(device.isHwOk());
        EXPECT_EQ(0, device.m_hwErrorCount);
        EXPECT_EQ("05 02 03 00 00 00 00 00 ", device.m_mfrDate.dataToString());
    }
    EXPECT_EQ(OPEN + BIND + PAGE + ID + MODEL + REVISION + IDENTITY + PAGE + DATE + VERSION
                  + "<7>[DEBUG] max34460.cpp (setHwState) - State changed from 0 to 1\nclose\n",
              transcript());
}

TEST_F(DeviceTest, AStartThatFails)
{
    const auto error = [](const std::string& text) {
        return "<3>[ERROR] max34460.cpp (" + text + "\n";
    };
    const struct {
        const char* name;
        std::deque<int> results;
        std::string expected;
    } cases[] = {
        {"no device",
         {-EINTR, -EINTR, -ENOENT},
         OPEN + OPEN + OPEN
             + error("Max34460) - Cannot open I2C driver /dev/i2c-0: No such file or directory")
             + FAILED},
        {"address in use",
         {1000, -EINTR, -EBUSY},
         OPEN + BIND + BIND + error("Max34460) - Cannot access I2C driver: Device or resource busy")
             + FAILED + "close\n"},
        {"no answer",
         {1000, 0, -ENXIO, -ENXIO, -ENXIO},
         OPEN + BIND + PAGE + error("readGeneralInfo) - Page command failed") + FAILED + "close\n"},
        {"no identity",
         {1000, 0, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + PAGE + ID + error("readGeneralInfo) - Cannot read id and model") + FAILED
             + "close\n"},
        {"no model",
         {1000, 0, 0, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + PAGE + ID + MODEL + error("readGeneralInfo) - Cannot read id and model")
             + FAILED + "close\n"},
        {"no revision",
         {1000, 0, 0, 0, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + PAGE + ID + MODEL + REVISION
             + error("readGeneralInfo) - Cannot read id and model") + FAILED + "close\n"},
        {"second page fails",
         {1000, 0, 0, 0, 0, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + PAGE + ID + MODEL + REVISION + IDENTITY + PAGE
             + error("readVersionInfo) - Page command failed") + FAILED + "close\n"},
        {"no version",
         {1000, 0, 0, 0, 0, 0, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + PAGE + ID + MODEL + REVISION + IDENTITY + PAGE + DATE
             + error("readVersionInfo) - Cannot read power settings version") + FAILED + "close\n"},
    };
    for (const auto& [name, results, expected] : cases) {
        fakeSystem.results = results;
        fakeSystem.bus = {0x4D, 0x5A, '1', 'A'};
        {
            const Device device;
            EXPECT_FALSE(device.isHwOk()) << name;
            EXPECT_EQ(HW_STATE_FAILED, device.m_hwState) << name;
        }
        EXPECT_EQ(expected, withoutRetries(transcript())) << name;
    }
}

TEST_F(DeviceTest, TheErrorCountCountsOnlyChanges)
{
    Device device;
    transcript();
    device.setHwError(false);
    device.setHwError(true);
    device.setHwError(true);
    device.setHwError(false);
    device.setHwError(true);
    EXPECT_EQ(2, device.m_hwErrorCount);
    EXPECT_EQ("<3>[ERROR] max34460.cpp (setHwError) - Error set, m_hwErrorCount = 1\n"
              "<6>[INFO] max34460.cpp (setHwError) - Error cleared\n"
              "<3>[ERROR] max34460.cpp (setHwError) - Error set, m_hwErrorCount = 2\n",
              transcript());
}

TEST_F(DeviceTest, TheBusNumberIsPartOfThePath)
{
    fakeSystem.results = {-ENOENT};
    const Device device(12);
    EXPECT_EQ("open /dev/i2c-12 flags 2\n", transcript().substr(0, 25));
}

} // namespace
