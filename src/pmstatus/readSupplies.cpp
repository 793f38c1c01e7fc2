#include "readSupplies.h"

#include <unistd.h>

#include <algorithm>
#include <functional>

#include "messages.h"
#include "pages.h"
#include "provedChip.h"
#include "selectedPage.h"
#include "values.h"

using catalogue::Kind;
using catalogue::Row;

namespace {

/// With this bit WRITE_PROTECT bars PAGE as well (PMBus standard).
constexpr unsigned int PAGE_IS_BARRED = 0x80;

/// The chip measures voltages that often (data sheets of siblings).
constexpr useconds_t MEASURING_PERIOD_US = 5000;

constexpr std::uint8_t LIVE_CHANNEL[] = {ReadVout::CODE, MfrVoutPeak::CODE, MfrVoutMin::CODE,
                                         StatusVout::CODE, StatusMfrSpecific::CODE};
constexpr std::uint8_t LIVE_SENSOR[] = {ReadTemperature::CODE, MfrTemperaturePeak::CODE,
                                        StatusTemperature::CODE};
constexpr std::uint8_t LIVE_DEVICE[] = {StatusWord::CODE, StatusCML::CODE, StatusMfrSpecific::CODE,
                                        WriteProtect::CODE};

/// What is done with the chip while the lock is held. False, with a reason in `error`.
using Work = std::function<bool(const ProvedChip& chip, std::string& error)>;

/// Takes the lock, opens the chip, lets `work` work and leaves everything as it was found. The
/// first thing that fails is the reason in `error`.
bool useChip(int bus, const Work& work, std::string& error)
{
    ChipLock lock([](const std::string& what) {
        if (isatty(STDERR_FILENO) == 1) { // programs are told one line, why it failed
            tell(what);
        }
    });
    if (!lock.isHeld()) {
        error = lock.error();
        return false;
    }
    const auto selected = SelectedPage::find(bus, error);
    if (selected == nullptr) {
        return false;
    }
    const auto chip = ProvedChip::open(bus, lock, error);
    const bool done = chip != nullptr && work(*chip, error);
    std::string restoreError;
    const bool restored = selected->restore(lock, restoreError);
    if (done && !restored) {
        error = restoreError;
    }
    return done && restored;
}

/// Reads registers of a page into `registers`.
class PageReader {
public:
    PageReader(const ProvedChip& chip, std::uint8_t page, std::map<std::uint8_t, int>& registers)
        : m_chip(chip),
          m_page(page),
          m_registers(registers)
    {
    }

    /// A register that may change at any time: once.
    bool readLive(std::uint8_t code, std::string& error)
    {
        const Row& row = *catalogue::find(code);
        ProvedChip::Bytes value;
        return m_chip.readOnce(row, m_page, value, error) && keep(row, value);
    }

    /// A setting: twice alike.
    bool readSetting(const Row& row, std::string& error)
    {
        ProvedChip::Bytes value;
        return m_chip.readTwice(row, m_page, value, error) && keep(row, value);
    }

private:
    bool keep(const Row& row, const ProvedChip::Bytes& value)
    {
        m_registers[row.code] = numberOf(row, value);
        return true;
    }

    const ProvedChip& m_chip;
    std::uint8_t m_page;
    std::map<std::uint8_t, int>& m_registers;
};

/// The settings of a channel or sensor by which it is judged.
bool isJudgedBy(const Row& row)
{
    const bool isLimit = row.code == VoutOVFaultLimit::CODE || row.code == VoutOVWarnLimit::CODE
                         || row.code == VoutUVWarnLimit::CODE || row.code == VoutUVFaultLimit::CODE
                         || row.code == OTFaultLimit::CODE || row.code == OTWarnLimit::CODE;
    return isLimit || row.code == VoutScaleMonitor::CODE || row.code == MfrChannelNominal::CODE;
}

/// Whether it is a setting that the page has for itself.
bool isOwnSetting(const Row& row, int page)
{
    return row.kind == Kind::SETTING && !isShared(row) && (accessOn(row, page) & ACCESS_READ) != 0;
}

/// Reads what the rail is judged by. A page at its factory settings is one that is not used: only
/// where these registers hold the factory's numbers, the others are asked, too.
bool readSettings(const ProvedChip& chip, PageReader& reader, Rail& rail, std::string& error)
{
    const auto isChanged = [&](const Row& row) {
        return static_cast<std::uint16_t>(rail.value(row.code)) != row.factory;
    };
    for (const bool isJudging : {true, false}) {
        for (const Row& row : catalogue::ROWS) {
            if (!isOwnSetting(row, rail.page) || isJudgedBy(row) != isJudging
                || (row.code == MfrChannelNominal::CODE && !chip.givesNominal())) {
                continue;
            }
            if (!isJudging && rail.isConfigured) {
                return true;
            }
            if (!reader.readSetting(row, error)) {
                return false;
            }
            rail.isConfigured = rail.isConfigured || isChanged(row);
        }
    }
    return true;
}

template <std::size_t Count>
bool readLive(PageReader& reader, const std::uint8_t (&codes)[Count], std::string& error)
{
    return std::ranges::all_of(codes,
                               [&](std::uint8_t code) { return reader.readLive(code, error); });
}

/// Reads a channel or sensor anew: its settings, then what is measured, then its status.
bool readRail(const ProvedChip& chip, const ReadingRequest& request, Rail& rail, std::string& error)
{
    rail = {rail.page, rail.isExpectedOff, false, {}, {}};
    const std::uint8_t readingCode = rail.isChannel() ? ReadVout::CODE : ReadTemperature::CODE;
    PageReader reader(chip, static_cast<std::uint8_t>(rail.page), rail.registers);
    if (!readSettings(chip, reader, rail, error)) {
        return false;
    }
    if (const auto besides = request.besides.find(rail.page); besides != request.besides.end()) {
        for (const std::uint8_t code : besides->second) {
            if (!rail.registers.contains(code)
                && !reader.readSetting(*catalogue::find(code), error)) {
                return false;
            }
        }
    }
    if (!(rail.isChannel() ? readLive(reader, LIVE_CHANNEL, error)
                           : readLive(reader, LIVE_SENSOR, error))) {
        return false;
    }
    rail.readings = {rail.value(readingCode)};
    if (needsSecondReading(rail)) {
        usleep(MEASURING_PERIOD_US);
        if (!reader.readLive(readingCode, error)) {
            return false;
        }
        rail.readings.push_back(rail.value(readingCode));
    }
    return true;
}

bool readDevice(const ProvedChip& chip, const ReadingRequest& request,
                std::map<std::uint8_t, int>& registers, std::string& error)
{
    PageReader reader(chip, Command::ALL_PAGES, registers);
    if (!readLive(reader, LIVE_DEVICE, error)) {
        return false;
    }
    const auto besides = request.besides.find(Command::ALL_PAGES);
    return besides == request.besides.end()
           || std::ranges::all_of(besides->second, [&](std::uint8_t code) {
                  return reader.readSetting(*catalogue::find(code), error);
              });
}

/// False, with the reason, if the chip ignores PAGE: then no page but the selected one can be read.
bool heedsPage(const ProvedChip& chip, std::string& error)
{
    ProvedChip::Bytes level;
    if (!chip.readOnce(*catalogue::find(WriteProtect::CODE), Command::ALL_PAGES, level, error)) {
        return false;
    }
    if ((level[0] & PAGE_IS_BARRED) != 0) {
        error = "WRITE_PROTECT is 0x80 in the chip: it ignores PAGE, and only one page can be read";
        return false;
    }
    return true;
}

bool identify(const ProvedChip& chip, ChipState& state, std::string& error)
{
    state.model = chip.model();
    state.settingsVersion = chip.settingsVersion();
    return heedsPage(chip, error);
}

bool readStatus(const ProvedChip& chip, ChipState& state, std::string& error)
{
    for (Rail& rail : state.rails) {
        const auto page = static_cast<std::uint8_t>(rail.page);
        PageReader reader(chip, page, rail.registers);
        const auto read = [&](std::string& reason) {
            return rail.isChannel() ? reader.readLive(StatusVout::CODE, reason)
                                          && reader.readLive(StatusMfrSpecific::CODE, reason)
                                    : reader.readLive(StatusTemperature::CODE, reason);
        };
        if (!chip.visit(page, read, error)) {
            return false;
        }
    }
    PageReader reader(chip, Command::ALL_PAGES, state.device);
    return chip.visit(
        Command::ALL_PAGES,
        [&](std::string& reason) { return readLive(reader, LIVE_DEVICE, reason); }, error);
}

bool isStatusEqual(const ChipState& one, const ChipState& other)
{
    const auto isEqual = [](const Rail& left, const Rail& right) {
        return left.status() == right.status()
               && (!left.isChannel()
                   || left.value(StatusMfrSpecific::CODE) == right.value(StatusMfrSpecific::CODE));
    };
    return one.device.at(StatusWord::CODE) == other.device.at(StatusWord::CODE)
           && one.device.at(StatusCML::CODE) == other.device.at(StatusCML::CODE)
           && one.device.at(StatusMfrSpecific::CODE) == other.device.at(StatusMfrSpecific::CODE)
           && std::ranges::equal(one.rails, other.rails, isEqual);
}

} // namespace

std::optional<ChipState> readSupplies(const ReadingRequest& request, std::string& error)
{
    ChipState state;
    std::vector<Work> steps = {
        [&](const ProvedChip& chip, std::string& reason) { return identify(chip, state, reason); }};
    for (int page = 0; page < Command::ALL_PAGES; ++page) {
        if (catalogue::isPage(page)) {
            state.rails.push_back({page, request.expectedOff.contains(page), false, {}, {}});
        }
    }
    for (Rail& rail : state.rails) {
        steps.push_back([&](const ProvedChip& chip, std::string& reason) {
            return chip.visit(
                static_cast<std::uint8_t>(rail.page),
                [&](std::string& cause) { return readRail(chip, request, rail, cause); }, reason);
        });
    }
    steps.push_back([&](const ProvedChip& chip, std::string& reason) {
        return chip.visit(
            Command::ALL_PAGES,
            [&](std::string& cause) { return readDevice(chip, request, state.device, cause); },
            reason);
    });
    const auto all = [&](const ProvedChip& chip, std::string& reason) {
        return std::ranges::all_of(steps, [&](const Work& step) { return step(chip, reason); });
    };
    const bool done =
        request.releasesByPage ? std::ranges::all_of(
            steps, [&](const Work& step) { return useChip(request.bus, step, error); })
                               : useChip(request.bus, all, error);
    return done ? std::optional(std::move(state)) : std::nullopt;
}

std::optional<ChipState> clearStatus(const ReadingRequest& request, const ChipState& shown,
                                     std::string& error)
{
    ChipState now = shown;
    bool isSent = false;
    const auto clear = [&](const ProvedChip& chip, std::string& reason) {
        if (!readStatus(chip, now, reason)) {
            return false;
        }
        if (!isStatusEqual(now, shown)) {
            reason = "the status has changed since it was shown";
            return false;
        }
        const auto send = [&](std::string& cause) { return isSent = chip.clearFaults(cause); };
        return chip.visit(Command::ALL_PAGES, send, reason) && readStatus(chip, now, reason);
    };
    if (useChip(request.bus, clear, error)) {
        return now;
    }
    error = (isSent ? "CLEAR_FAULTS was sent, but what is latched again is not known: "
                    : "nothing was cleared: ")
            + error;
    return std::nullopt;
}
