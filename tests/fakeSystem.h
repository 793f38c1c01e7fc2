// The system calls of src/ replaced at link time: each call becomes one line of a
// transcript and takes its result from a queue. Used by the tests of classes.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <string>

#include "trace.h"

struct FakeSystem {
    std::string transcript;
    /// Results of the next requests; a negative one is a failure with that errno.
    /// When the queue is empty, requests succeed.
    std::deque<int> results;
    /// What the next reads find on the bus, byte by byte; then zeros.
    std::deque<std::uint8_t> bus;
    /// The hardware version of the board; negative: the query fails.
    int hwVersion = 3;

    int next(int otherwise);
};

extern FakeSystem fakeSystem;

/// A test with a fresh system and a trace object that admits everything.
class SystemTest : public testing::Test {
protected:
    SystemTest();
    ~SystemTest() override;

    /// Returns the transcript since the last call.
    static std::string transcript();
    static void setTraceLevel(int level) { g_traceObject->m_settings->level = level; }
};
