// The lines that transcripts of several tests share.
#pragma once

#include <string>

/// The `number`-th attempt at a transfer, failed.
inline std::string attempt(int number, const std::string& request, const std::string& failure)
{
    const std::string caller = failure.find("Read") == 0 ? "WARNING read: " : "WARNING write: ";
    return request + caller + failure + "\n" + caller + "retry " + std::to_string(number) + "\nusleep 10000\n";
}

/// All attempts at a transfer, failed.
inline std::string attempts(const std::string& request, const std::string& failure)
{
    return attempt(1, request, failure) + attempt(2, request, failure) + attempt(3, request, failure);
}

// The start-up of a device object, and its lock.
inline const std::string OPEN = "open /dev/i2c-0 flags 2\n";
inline const std::string BIND = "ioctl 1000 703 0x74\n";
inline const std::string PAGE_255 = "smbus 1000 write size 2: 00 ff\n";
inline const std::string READ_ID = "smbus 1000 read size 2: 99\n";
inline const std::string READ_MODEL = "smbus 1000 read size 2: 9a\n";
inline const std::string READ_REVISION = "smbus 1000 read size 3: 9b\n";
inline const std::string READ_DATE = "rdwr 1000 74 flags 0 len 1: 9d 74 flags 1 len 8\n";
inline const std::string START = OPEN + BIND + PAGE_255 + READ_ID + READ_MODEL + READ_REVISION + PAGE_255 + READ_DATE;
inline const std::string LOCK = "semget 9f39b 1 7b6\nsemctl 42 0 SETVAL 1\nsemop 42: 0 -1 flags 2048, 1\n";
inline const std::string UNLOCK = "semctl 42 0 GETVAL\nsemop 42: 0 +1 flags 2048, 1\n";
