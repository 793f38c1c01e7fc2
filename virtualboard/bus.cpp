#include "bus.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "board.h"
#include "processes.h"

namespace virtualboard {

namespace {

constexpr std::uint64_t BIT_US = 10;       // at 100 kHz
constexpr std::uint64_t BITS_PER_BYTE = 9; // with the acknowledge bit

bool isRead(const i2c_msg& message)
{
    return (message.flags & I2C_M_RD) != 0;
}

// What goes over the wire in a transfer.
struct Wire {
    std::string text; // in bus notation
    std::uint64_t bytes = 0;
    std::uint64_t bits = 0;

    void start(const i2c_msg& message)
    {
        char start[12];
        std::snprintf(start, sizeof(start), "%s %02X%c", text.empty() ? "S" : " Sr", message.addr,
                      isRead(message) ? 'r' : 'w');
        text += start;
        bytes += 1;
        bits += 1 + BITS_PER_BYTE;
    }

    void carry(const std::uint8_t* data, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i) {
            static constexpr char DIGITS[] = "0123456789ABCDEF";
            text += {' ', DIGITS[data[i] >> 4], DIGITS[data[i] & 0xF]};
        }
        bytes += count;
        bits += count * BITS_PER_BYTE;
    }

    void refuse() { text += " N"; }

    void stop()
    {
        text += " P";
        ++bits;
    }
};

struct Outcome {
    int error = 0; // or the errno
    Death death = Death::NONE;
    Wire wire;
};

// One transfer while it holds the board.
class Transfer {
public:
    Transfer(Session& session, BoardAccess& board, i2c_msg* messages, std::size_t count)
        : m_session(session),
          m_board(board),
          m_chip(board.chip()),
          m_messages(messages),
          m_count(count)
    {
    }

    Outcome run();

private:
    int code() const;
    Supplies suppliesNow();
    void watchSupplies(Supplies& supplies);
    void attempt(int error);
    int perform();
    int write(const i2c_msg& message, bool readFollows);
    int read(i2c_msg& message);
    void receive(const i2c_msg& message, std::size_t from, std::size_t count);

    Session& m_session;
    BoardAccess& m_board;
    Chip m_chip;
    i2c_msg* m_messages;
    std::size_t m_count;
    int m_named = ANY; // command code that a read is about
    Wire m_wire;
};

// The command code that the transfer begins with.
int Transfer::code() const
{
    const i2c_msg& first = m_messages[0];
    return isRead(first) || first.len == 0 || first.addr != Command::CHIP_ADDRESS ? ANY
                                                                                  : first.buf[0];
}

// The supplies while this transfer lasts: the session's rules give some another voltage.
Supplies Transfer::suppliesNow()
{
    Supplies supplies = m_board.supplies();
    for (std::size_t i = 0; i < supplies.channels.size(); ++i) {
        Supply& supply = supplies.channels[i];
        const Fault* fault = supply.isSet == 0 ? nullptr
                                               : strikingFault(m_session, FaultKind::SUPPLY, code(),
                                                               m_chip.page(), static_cast<int>(i));
        if (fault != nullptr) {
            supply.microvolts = toBytes(static_cast<std::uint32_t>(fault->value));
        }
    }
    return supplies;
}

void Transfer::watchSupplies(Supplies& supplies)
{
    watch(supplies, m_board.chip().ram);
    for (std::size_t i = 0; i < supplies.channels.size(); ++i) {
        m_board.supplies().channels[i].hasComeUp = supplies.channels[i].hasComeUp;
    }
}

Outcome Transfer::run()
{
    ++m_session.transfers;
    Supplies supplies = suppliesNow();
    measure(supplies, m_board.chip().ram);
    const Fault* fault = strikingFault(m_session, FaultKind::TRANSFER, code(), m_chip.page());
    const bool stores = m_session.clock < m_session.silentUntil;
    int error = fault == nullptr ? 0 : fault->error;
    if (error == 0 && stores) {
        error = ENXIO;
    }
    if (error == 0) {
        error = perform();
    } else {
        attempt(error);
    }
    if (!stores) { // it does nothing else meanwhile
        watchSupplies(supplies);
    }
    m_wire.stop();
    const Death death = fault == nullptr ? Death::NONE : fault->death;
    if (death == Death::POWER) {
        m_board.powerUp();
    }
    if (!m_board.save()) {
        std::fprintf(stderr, "virtual-board: %s\n", m_board.error().c_str());
        error = EIO;
    }
    return {error, death, m_wire};
}

// Shows what a transfer that doesn't reach the chip tried to send.
void Transfer::attempt(int error)
{
    m_wire.start(m_messages[0]);
    if (error == ENXIO) {
        m_wire.refuse();
    } else if (!isRead(m_messages[0])) {
        m_wire.carry(m_messages[0].buf, m_messages[0].len);
    }
}

int Transfer::perform()
{
    for (std::size_t i = 0; i < m_count; ++i) {
        i2c_msg& message = m_messages[i];
        m_wire.start(message);
        if (message.addr != Command::CHIP_ADDRESS) {
            m_wire.refuse();
            return ENXIO;
        }
        const bool readFollows = i + 1 < m_count && isRead(m_messages[i + 1]);
        const int error = isRead(message) ? read(message) : write(message, readFollows);
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

int Transfer::write(const i2c_msg& message, bool readFollows)
{
    if (message.len == 0) {
        return 0; // SMBus quick command: the chip only acknowledges
    }
    const Memory before = m_board.chip();
    const int page = m_chip.page();
    const std::size_t accepted = m_chip.receive(message.buf, message.len, readFollows);
    const bool whole = accepted == message.len;
    m_wire.carry(message.buf, whole ? accepted : accepted + 1);
    if (!whole) {
        m_wire.refuse();
        return EREMOTEIO;
    }
    m_named = message.buf[0];
    if (readFollows) {
        return 0;
    }
    if (strikingFault(m_session, FaultKind::KEEP, m_named, page) != nullptr) {
        m_board.chip() = before;
    }
    if (m_named == StoreDefaultAll::CODE && message.len == 1) {
        const Fault* silent = strikingFault(m_session, FaultKind::STORE_SILENT);
        m_session.silentUntil = silent == nullptr ? 0 : m_session.clock + silent->silence;
    }
    return 0;
}

int Transfer::read(i2c_msg& message)
{
    if ((message.flags & I2C_M_RECV_LEN) == 0) {
        receive(message, 0, message.len);
        return 0;
    }
    receive(message, 0, 1);
    const std::uint8_t count = message.buf[0];
    if (count == 0 || count > I2C_SMBUS_BLOCK_MAX) {
        return EPROTO;
    }
    message.len = static_cast<std::uint16_t>(1 + count);
    receive(message, 1, count);
    return 0;
}

// Takes `count` bytes from the chip, `from` bytes into the message.
void Transfer::receive(const i2c_msg& message, std::size_t from, std::size_t count)
{
    m_chip.send(message.buf + from, count, from);
    if (const Fault* stuck = strikingFault(m_session, FaultKind::STUCK, m_named, m_chip.page())) {
        for (std::size_t i = from; i < from + count && i < sizeof(stuck->mask); ++i) {
            const auto mask = static_cast<std::uint8_t>(stuck->mask >> (8 * i));
            const auto value = static_cast<std::uint8_t>(stuck->value >> (8 * i));
            message.buf[i] = static_cast<std::uint8_t>((message.buf[i] & ~mask) | (value & mask));
        }
    }
    m_wire.carry(message.buf + from, count);
}

// Counts a completed transfer, and logs it.
void account(Session& session, const Outcome& outcome)
{
    const auto& [error, death, wire] = outcome;
    session.failures += error == 0 ? 0 : 1;
    session.bytes += wire.bytes;
    session.bits += wire.bits;
    session.clock += wire.bits * BIT_US;
    if (session.busLog[0] != '\0') {
        const char* name = death == Death::POWER  ? "power off"
                           : death != Death::NONE ? "SIGKILL"
                           : error != 0           ? strerrorname_np(error)
                                                  : nullptr;
        const std::string mark = name == nullptr ? "" : std::string(" ! ") + name;
        appendLine(session, session.busLog, wire.text + mark);
    }
    if (death != Death::NONE) {
        // Nobody else of the run gets its turn before it is killed.
        killRun(death == Death::PROCESS ? 0 : session.launcher);
    }
}

int refuse(const std::string& reason)
{
    std::fprintf(stderr, "virtual-board: %s\n", reason.c_str());
    return EIO;
}

} // namespace

int transfer(Session& session, i2c_msg* messages, std::size_t count)
{
    const FileLock turn = takeTurn(session);
    if (turn.error() != 0) {
        return refuse("cannot use the session " + std::string(session.folder) + ": "
                      + std::strerror(turn.error()));
    }
    Outcome outcome;
    {
        BoardAccess board(session.board);
        if (!board.isOpen()) {
            return refuse(board.error());
        }
        outcome = Transfer(session, board, messages, count).run();
    }
    // The board is free again while a slow log takes its line.
    account(session, outcome);
    return outcome.error;
}

} // namespace virtualboard
