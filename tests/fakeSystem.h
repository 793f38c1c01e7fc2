// The system calls of src/ replaced at link time: each call becomes one line of a transcript and takes its result from
// a queue. Used by the tests of classes.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "trace.h"

struct FakeSystem {
    std::string transcript;
    /// The last log line whole, with its priority before it, as in "<3>"; in the transcript it is shorter.
    std::string lastLog;
    /// Results of the next requests; a negative one is a failure with that errno. After them, requests succeed.
    std::deque<int> results;
    /// The results of only those requests that are this line in the transcript.
    std::map<std::string, std::deque<int>> resultsOf;
    /// The bytes that the next reads get from the bus; then zeros.
    std::deque<std::uint8_t> bus;
    /// The hardware version of the board; if empty, the query fails.
    std::optional<int> hwVersion = 3;
    /// How many reads of files succeed until one fails, and its errno; negative: none does.
    int goodReads = -1;
    int readError = EIO;
};

extern FakeSystem fakeSystem;

/// A record line of data that is given as digits, with optional blanks; its address, type and checksum don't
/// matter.
std::string asRecord(std::string digits);

/// A test with a fresh system and a trace object that lets everything through.
class SystemTest : public testing::Test {
protected:
    SystemTest();
    ~SystemTest() override;

    /// Returns the transcript since the last call.
    static std::string transcript() { return std::exchange(fakeSystem.transcript, ""); }
    /// The same for what `operation` does, and its result if it has one. What it prints appears as lines after "> "
    /// (standard output) and "! " (standard error).
    static std::string record(const std::function<void()>& operation);
    static std::string recordResult(const std::function<bool()>& operation);

    /// Returns what `function` returns for arguments as main gets them: "./pm" and these.
    static int callWith(std::vector<std::string> words, const std::function<int(int, char**)>& function);

    static void setTraceLevel(int level) { g_traceObject->m_settings->level = level; }

    /// Writes a file in the test's own folder. Returns its path.
    std::string write(const std::string& name, const std::string& content) const;

    const std::string m_folder = testing::TempDir() + "class_tests." + std::to_string(getpid());
};

// Lines that transcripts of several tests share.

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
