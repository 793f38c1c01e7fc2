// The chip as programs read it beside others that use it without the lock: page by page, each
// proved to have been selected from the first transfer to the last. What fails is told to the
// caller in words. `pmfile read` is made of it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "chipLock.h"
#include "commandCatalogue.h"
#include "max34460.h"

class ProvedChip : public Max34460 {
public:
    using Bytes = std::vector<std::uint8_t>;

    /// Reads on a page. False, with a reason in `error`.
    using Reader = std::function<bool(std::string& error)>;

    /// Opens and identifies the chip on /dev/i2c-`bus`, where SelectedPage found one. Its user
    /// holds `lock`, which outlives it. Null, with the reason in `error`, if that fails or the chip
    /// is another.
    static std::unique_ptr<ProvedChip> open(int bus, ChipLock& lock, std::string& error);

    /// Whether this model gives MFR_CHANNEL_NOMINAL back.
    bool givesNominal() const;

    /// MFR_MODEL.
    std::uint8_t model() const { return m_mfrModel.getByte(); }

    /// "2.5": of the settings that are installed.
    std::string settingsVersion() const;

    /// Selects `page` and lets `read` read there: again, and up to ten times, if the page did not
    /// stay selected. False, with the reason in `error`, if it never did, if `read` fails though
    /// the page is selected, or if the lock was lost.
    bool visit(std::uint8_t page, const Reader& read, std::string& error) const;

    /// Reads a register of the selected `page`, once. False, with the reason in `error`.
    bool readOnce(const catalogue::Row& row, std::uint8_t page, Bytes& value,
                  std::string& error) const;

    /// Sends CLEAR_FAULTS on page 255, which is selected. False, with the reason in `error`.
    bool clearFaults(std::string& error) const;

    /// Reads a register of the selected `page` until two readings in a row agree, up to three
    /// times. False, with the reason in `error`.
    bool readTwice(const catalogue::Row& row, std::uint8_t page, Bytes& value,
                   std::string& error) const;

private:
    ProvedChip(int bus, ChipLock& lock)
        : Max34460("ProvedChip", bus, Command::CHIP_ADDRESS),
          m_lock(lock)
    {
    }

    bool identify(std::string& error) const;
    bool select(std::uint8_t page, std::string& error) const;
    bool isSelected(std::uint8_t page, bool& selected, std::string& error) const;

    ChipLock& m_lock;
};
