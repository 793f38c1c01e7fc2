// What comes before a chip object is built, whose start selects page 255 and says nothing of why it
// failed: is there a chip, and which page do other programs find selected? Who reads a chip begins
// with it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "chipLock.h"

/// Takes the number of a bus, N of /dev/i2c-N, from a command line. Returns what is wrong with it,
/// or
/// "".
std::string takeBus(std::string_view text, int& bus);

class SelectedPage {
public:
    /// Asks the chip on /dev/i2c-`bus`. Null, with the cause in `error`, if the bus can't be
    /// opened, a driver of the kernel has the chip's address, or nothing answers there.
    static std::unique_ptr<SelectedPage> find(int bus, std::string& error);

    ~SelectedPage();
    SelectedPage(const SelectedPage&) = delete;
    SelectedPage& operator=(const SelectedPage&) = delete;

    /// Selects that page again. False, with the reason in `error`, if the lock is lost, when
    /// nothing is written, or if that fails.
    bool restore(ChipLock& lock, std::string& error) const;

private:
    explicit SelectedPage(const std::string& path);

    bool bind() const;

    int m_fd; ///< of the bus, owned; -1 if it can't be opened
    std::uint8_t m_page = 0;
};
