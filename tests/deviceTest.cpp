#include "max34460.h"

#include <cerrno>

#include "fakeSystem.h"

namespace {

struct Device : Max34460 {
    explicit Device(int bus = 0, int address = 0x74) : Max34460("Device", bus, address) {}
    using Max34460::m_hwState;
    using Max34460::setHwError;
    using Max34460::setHwState;
};

const std::string FAILED =
    "DEBUG setHwState: State changed from 0 to 2\nERROR setHwError: Error set, m_hwErrorCount = 1\n";

class DeviceTest : public SystemTest {
protected:
    /// Makes a device whose requests have these results, or succeed. Returns what happened.
    static std::string start(const std::deque<int>& results, bool ok = false)
    {
        fakeSystem.results = results;
        fakeSystem.bus = {0x4D, 0x5A, '1', 'A', 5, 2, 3};
        return record([ok] {
            const Device device;
            EXPECT_EQ(ok, device.isHwOk());
            EXPECT_EQ(ok ? HW_STATE_OK : HW_STATE_FAILED, device.m_hwState);
        });
    }
};

TEST_F(DeviceTest, StartUp)
{
    EXPECT_EQ(OPEN + OPEN + OPEN + "ERROR Max34460: Cannot open I2C driver /dev/i2c-0: No such file or directory\n"
                  + FAILED,
              start({-EINTR, -EINTR, -ENOENT}));
    // The descriptor 0 is used like any other, but never closed.
    EXPECT_EQ(OPEN + "ioctl 0 703 0x74\nioctl 0 703 0x74\n"
                  + "ERROR Max34460: Cannot access I2C driver: Device or resource busy\n" + FAILED,
              start({0, -EINTR, -EBUSY}));
    EXPECT_EQ(OPEN + "ioctl 1 703 0x74\n" + "ERROR Max34460: Cannot access I2C driver: Invalid argument\n" + FAILED
                  + "close 1\n",
              start({1, -EINVAL}));
    // Each transfer, why it fails, what follows from that, and what is logged behind its success.
    const std::string noIdentity = "readGeneralInfo: Cannot read id and model\n";
    const std::string steps[][4] = {
        {PAGE_255, "Write command 00", "readGeneralInfo: Page command failed\n", ""},
        {READ_ID, "Read command 99", noIdentity, ""},
        {READ_MODEL, "Read command 9a", noIdentity, ""},
        {READ_REVISION, "Read command 9b", noIdentity,
         "DEBUG2 readGeneralInfo: Id 0x4d, model 0x5a, HW revision A, FW revision 1\n"},
        {PAGE_255, "Write command 00", "readVersionInfo: Page command failed\n", ""},
        {READ_DATE, "Read command 9d", "readVersionInfo: Cannot read power settings version\n",
         "DEBUG2 readVersionInfo: power settings version v2.5, minimum HW version 3\n"},
    };
    std::deque<int> results = {1000, 1};
    std::string done = OPEN + BIND;
    for (const auto& [request, failure, error, success] : steps) {
        std::deque<int> failing = results;
        failing.insert(failing.end(), {-EIO, -EIO, -EIO});
        EXPECT_EQ(done + attempts(request, failure + " on page 255 failed, Input/output error") + "ERROR " + error
                      + FAILED + "close 1000\n",
                  start(failing));
        results.push_back(0);
        done += request + success;
    }
    EXPECT_EQ(done + "DEBUG setHwState: State changed from 0 to 1\nclose 1000\n", start(results, true));
}

TEST_F(DeviceTest, BusAndAddressAreThoseAskedForAndOnlyChangesAreTold)
{
    Device device(12, 0x70);
    EXPECT_EQ("open /dev/i2c-12 flags 2\nioctl 1000 703 0x70\n", transcript().substr(0, 45));
    device.setHwState(HW_STATE_OK);
    for (const bool error : {false, true, true, false, true}) {
        device.setHwError(error);
    }
    EXPECT_EQ("ERROR setHwError: Error set, m_hwErrorCount = 1\nINFO setHwError: Error cleared\n"
              "ERROR setHwError: Error set, m_hwErrorCount = 2\n",
              transcript());
}

} // namespace
