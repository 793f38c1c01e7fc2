// The system calls of src/ replaced at link time: each call becomes one line of a
// transcript and takes its result from a queue. Used by the tests of classes.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "trace.h"
#include "transcripts.h"

struct FakeSystem {
    std::string transcript;
    /// The last log line as it was, behind its priority; in the transcript it is shorter.
    std::string lastLog;
    /// Results of the next requests; a negative one is a failure with that errno.
    /// When the queue is empty, requests succeed.
    std::deque<int> results;
    /// What the next reads find on the bus, byte by byte; then zeros.
    std::deque<std::uint8_t> bus;
    /// The hardware version of the board; if empty, the query fails.
    std::optional<int> hwVersion = 3;
    /// How many reads of files succeed until one fails, and its errno; negative: none does.
    int goodReads = -1;
    int readError = EIO;
};

extern FakeSystem fakeSystem;

/// A test with a fresh system and a trace object that admits everything.
class SystemTest : public testing::Test {
protected:
    SystemTest();
    ~SystemTest() override { delete std::exchange(g_traceObject, nullptr); }

    /// Returns the transcript since the last call.
    static std::string transcript() { return std::exchange(fakeSystem.transcript, ""); }
    /// The same with what `operation` does and, if it has one, its result. What it prints
    /// stands there as lines behind "> " (standard output) and "! " (standard error).
    static std::string record(const std::function<void()>& operation);
    static std::string recordResult(const std::function<bool()>& operation);

    static void setTraceLevel(int level) { g_traceObject->m_settings->level = level; }
};
