#include "provedChip.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "pages.h"
#include "text.h"
#include "versionRecord.h"

namespace {

/// MFR_ID of the chip's maker, and what a chip answers to every read that is locked by a password
/// (known from a sibling), or what a bus reads at which nothing drives the data line.
constexpr std::uint8_t MAKER = 0x4D;
constexpr std::uint8_t NO_ANSWER = 0xFF;

/// How often a page is read until it stays selected, and a register until two readings agree.
constexpr int PAGE_ATTEMPTS = 10;
constexpr int READINGS = 3;

/// After PAGE is written the chip may need 50 µs, as the Linux driver of this chip waits, before it
/// answers for the new page: twice that.
constexpr useconds_t PAGE_PAUSE_US = 100;

} // namespace

std::unique_ptr<ProvedChip> ProvedChip::open(int bus, ChipLock& lock, std::string& error)
{
    if (!lock.isHeld()) { // a start writes PAGE
        error = lock.error();
        return nullptr;
    }
    std::unique_ptr<ProvedChip> chip(new ProvedChip(bus, lock));
    return chip->identify(error) ? std::move(chip) : nullptr;
}

bool ProvedChip::identify(std::string& error) const
{
    if (!isHwOk()) {
        error = formatted("the power monitor on %s answered at first, but can't be identified (see "
                          "the system log)",
                          m_devicePath.c_str());
        return false;
    }
    const std::uint8_t maker = m_mfrId.getByte();
    if (maker == NO_ANSWER) {
        error =
            formatted("the chip on %s answers 0xFF, as one does that is locked or without power",
                      m_devicePath.c_str());
    } else if (maker != MAKER) {
        error = formatted("the chip on %s is not a MAX34460 (MFR_ID is not 0x4D)",
                          m_devicePath.c_str());
    }
    return maker == MAKER;
}

bool ProvedChip::givesNominal() const
{
    return m_mfrModel.getByte() != MODEL_WITHOUT_NOMINAL;
}

bool ProvedChip::visit(std::uint8_t page, const Reader& read, std::string& error) const
{
    for (int attempt = 0; attempt < PAGE_ATTEMPTS; ++attempt) {
        bool selected = false;
        if (!select(page, error) || !isSelected(page, selected, error)) {
            return false;
        }
        if (!selected) {
            continue;
        }
        std::string readError;
        const bool isRead = read(readError);
        const bool isKnown = isSelected(page, selected, error);
        if (isKnown && !selected) {
            continue; // registers are refused, or differ, where the page was taken away
        }
        if (!isRead) {
            error = readError;
        }
        return isKnown && isRead;
    }
    error = formatted("%s does not stay selected: the chip is write-protected, or another program "
                      "uses it without the lock",
                      pageName(page).c_str());
    return false;
}

bool ProvedChip::select(std::uint8_t page, std::string& error) const
{
    if (!m_lock.isHeld()) {
        error = m_lock.error();
        return false;
    }
    Page selection;
    if (!selection.write(m_fd, page)) {
        const int reason = errno;
        error =
            formatted("%s can't be selected: %s", pageName(page).c_str(), std::strerror(reason));
        return false;
    }
    usleep(PAGE_PAUSE_US);
    return true;
}

// Whether the page is selected now. False, with the reason, if that can't be read.
bool ProvedChip::isSelected(std::uint8_t page, bool& selected, std::string& error) const
{
    Page selection;
    if (!selection.read(m_fd, page)) {
        const int reason = errno;
        error = formatted("PAGE can't be read on %s: %s", pageName(page).c_str(),
                          std::strerror(reason));
        return false;
    }
    selected = selection.getByte() == page;
    return true;
}

std::string ProvedChip::settingsVersion() const
{
    return formatted("%d.%d", majorVersion(m_mfrDate), minorVersion(m_mfrDate));
}

bool ProvedChip::readOnce(const catalogue::Row& row, std::uint8_t page, Bytes& value,
                          std::string& error) const
{
    const std::unique_ptr<Command> command(Command::create(row.code));
    if (!command->read(m_fd, page)) {
        const int reason = errno;
        error = formatted("%s of %s can't be read: %s", row.name.text, placeName(page).c_str(),
                          std::strerror(reason));
        return false;
    }
    value.resize(row.size);
    command->getData(value.data());
    return true;
}

bool ProvedChip::clearFaults(std::string& error) const
{
    ClearFaults clearing;
    if (!clearing.write(m_fd, Command::ALL_PAGES)) {
        const int reason = errno;
        error = formatted("CLEAR_FAULTS can't be sent: %s", std::strerror(reason));
        return false;
    }
    return true;
}

bool ProvedChip::readTwice(const catalogue::Row& row, std::uint8_t page, Bytes& value,
                           std::string& error) const
{
    value.clear();
    for (int reading = 0; reading < READINGS; ++reading) {
        Bytes now;
        if (!readOnce(row, page, now, error)) {
            return false;
        }
        if (now == value) {
            return true;
        }
        value = now;
    }
    error =
        formatted("%s of %s reads differently each time", row.name.text, placeName(page).c_str());
    return false;
}
