#include "max34460.h"

#include <cerrno>

#include "fakeSystem.h"

namespace {

using DeviceTest = SystemTest;

struct Device : Max34460 {
    explicit Device(int bus = 0, int address = 0x74) : Max34460("Device", bus, address) {}
    using Max34460::m_hwState;
    using Max34460::setHwError;
    using Max34460::setHwState;
};

const std::string IDENTITY = PAGE_255 + READ_ID + READ_MODEL + READ_REVISION
                             + "DEBUG2 readGeneralInfo: Id 0x4d, model 0x5a, HW revision A, FW revision 1\n";
const std::string FAILED =
    "DEBUG setHwState: State changed from 0 to 2\nERROR setHwError: Error set, m_hwErrorCount = 1\n";

TEST_F(DeviceTest, StartUp)
{
    const std::string noIdentity = "ERROR readGeneralInfo: Cannot read id and model\n" + FAILED;
    const auto notRead = [](const std::string& request, const std::string& code) {
        return attempts(request, "Read command " + code + " on page 255 failed, Input/output error");
    };
    const std::string noPage = attempts(PAGE_255, "Write command 00 on page 255 failed, Input/output error");
    const std::tuple<std::deque<int>, std::string> cases[] = {
        {std::deque<int>(), OPEN + BIND + IDENTITY + PAGE_255 + READ_DATE
                                + "DEBUG2 readVersionInfo: power settings version v2.5, minimum HW version 3\n"
                                + "DEBUG setHwState: State changed from 0 to 1\n" + "close 1000\n"},
        {{-EINTR, -EINTR, -ENOENT},
         OPEN + OPEN + OPEN + "ERROR Max34460: Cannot open I2C driver /dev/i2c-0: No such file or directory\n"
             + FAILED},
        {{0, -EINTR, -EBUSY}, // the descriptor 0 is used like any other, but never closed
         OPEN + "ioctl 0 703 0x74\nioctl 0 703 0x74\n"
             + "ERROR Max34460: Cannot access I2C driver: Device or resource busy\n" + FAILED},
        {{1, -EINVAL},
         OPEN + "ioctl 1 703 0x74\n" + "ERROR Max34460: Cannot access I2C driver: Invalid argument\n" + FAILED
             + "close 1\n"},
        {{1000, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + noPage + "ERROR readGeneralInfo: Page command failed\n" + FAILED + "close 1000\n"},
        {{1000, 1, 0, -EIO, -EIO, -EIO}, OPEN + BIND + PAGE_255 + notRead(READ_ID, "99") + noIdentity + "close 1000\n"},
        {{1000, 0, 0, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + PAGE_255 + READ_ID + notRead(READ_MODEL, "9a") + noIdentity + "close 1000\n"},
        {{1000, 0, 0, 0, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + PAGE_255 + READ_ID + READ_MODEL + notRead(READ_REVISION, "9b") + noIdentity + "close 1000\n"},
        {{1000, 0, 0, 0, 0, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + IDENTITY + noPage + "ERROR readVersionInfo: Page command failed\n" + FAILED + "close 1000\n"},
        {{1000, 0, 0, 0, 0, 0, 0, -EIO, -EIO, -EIO},
         OPEN + BIND + IDENTITY + PAGE_255 + notRead(READ_DATE, "9d")
             + "ERROR readVersionInfo: Cannot read power settings version\n" + FAILED + "close 1000\n"},
    };
    for (const auto& [results, expected] : cases) {
        fakeSystem.results = results;
        fakeSystem.bus = {0x4D, 0x5A, '1', 'A', 5, 2, 3};
        const bool ok = results.empty();
        EXPECT_EQ(expected, record([ok] {
                      const Device device;
                      EXPECT_EQ(ok, device.isHwOk());
                      EXPECT_EQ(ok ? HW_STATE_OK : HW_STATE_FAILED, device.m_hwState);
                  }));
    }
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
