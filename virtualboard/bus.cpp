#include "bus.h"

#include <linux/i2c.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "board.h"

namespace virtualboard {

namespace {

constexpr std::uint64_t BIT_US = 10;       // at 100 kHz
constexpr std::uint64_t BITS_PER_BYTE = 9; // with the acknowledge bit

// What goes over the wire in a transfer.
struct Wire {
    std::string text; // in bus notation
    std::uint64_t bytes = 0;
    std::uint64_t bits = 0;

    void start(const Message& message)
    {
        char start[12];
        std::snprintf(start, sizeof start, "%s %02X%c", text.empty() ? "S" : " Sr",
                      static_cast<unsigned>(message.address), message.read ? 'r' : 'w');
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

// One transfer while it holds the board.
class Transfer {
public:
    Transfer(Session& session, BoardAccess& board, Message* messages, std::size_t count)
        : m_session(session),
          m_board(board),
          m_chip(board.chip()),
          m_messages(messages),
          m_count(count)
    {
    }

    int run();

private:
    int code() const;
    void attempt(int error);
    int perform();
    int write(const Message& message, bool readFollows);
    int read(Message& message);
    void receive(const Message& message, std::size_t from, std::size_t count);
    void finish(int error, bool killed);

    Session& m_session;
    BoardAccess& m_board;
    Chip m_chip;
    Message* m_messages;
    std::size_t m_count;
    int m_named = ANY; // command code that a read is about
    Wire m_wire;
};

// The command code that the transfer begins with.
int Transfer::code() const
{
    const Message& first = m_messages[0];
    return first.read || first.size == 0 || first.address != Command::CHIP_ADDRESS ? ANY
                                                                                   : first.bytes[0];
}

int Transfer::run()
{
    ++m_session.transfers;
    const Fault* fault = strikingFault(m_session, FaultKind::TRANSFER, code(), m_chip.page());
    int error = fault == nullptr ? 0 : fault->error;
    if (error == 0 && m_session.clock < m_session.silentUntil) {
        error = ENXIO;
    }
    if (error == 0) {
        error = perform();
    } else {
        attempt(error);
    }
    m_wire.stop();
    if (!m_board.save()) {
        std::fprintf(stderr, "virtual-board: %s\n", m_board.error().c_str());
        error = EIO;
    }
    finish(error, fault != nullptr && fault->kills);
    return error;
}

// Shows what a transfer that doesn't reach the chip tried to say.
void Transfer::attempt(int error)
{
    m_wire.start(m_messages[0]);
    if (error == ENXIO) {
        m_wire.refuse();
    } else if (!m_messages[0].read) {
        m_wire.carry(m_messages[0].bytes, m_messages[0].size);
    }
}

int Transfer::perform()
{
    for (std::size_t i = 0; i < m_count; ++i) {
        Message& message = m_messages[i];
        m_wire.start(message);
        if (message.address != Command::CHIP_ADDRESS) {
            m_wire.refuse();
            return ENXIO;
        }
        const bool readFollows = i + 1 < m_count && m_messages[i + 1].read;
        const int error = message.read ? read(message) : write(message, readFollows);
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

int Transfer::write(const Message& message, bool readFollows)
{
    if (message.size == 0) {
        return 0; // SMBus quick command: the chip acknowledges, that is all
    }
    const Memory before = m_board.chip();
    const int page = m_chip.page();
    const std::size_t accepted = m_chip.receive(message.bytes, message.size, readFollows);
    const bool whole = accepted == message.size;
    m_wire.carry(message.bytes, whole ? accepted : accepted + 1);
    if (!whole) {
        m_wire.refuse();
        return EREMOTEIO;
    }
    m_named = message.bytes[0];
    if (readFollows) {
        return 0;
    }
    if (strikingFault(m_session, FaultKind::KEEP, m_named, page) != nullptr) {
        m_board.chip() = before;
    }
    if (m_named == StoreDefaultAll::CODE && message.size == 1) {
        const Fault* silent = strikingFault(m_session, FaultKind::STORE_SILENT);
        m_session.silentUntil = silent == nullptr ? 0 : m_session.clock + silent->silence;
    }
    return 0;
}

int Transfer::read(Message& message)
{
    if (!message.countFirst) {
        receive(message, 0, message.size);
        return 0;
    }
    message.size = 1;
    receive(message, 0, 1);
    const std::size_t count = message.bytes[0];
    if (count == 0 || count > I2C_SMBUS_BLOCK_MAX) {
        return EPROTO;
    }
    message.size += count;
    receive(message, 1, count);
    return 0;
}

// Takes `count` bytes from the chip, `from` bytes into the message.
void Transfer::receive(const Message& message, std::size_t from, std::size_t count)
{
    m_chip.send(message.bytes + from, count, from);
    if (Fault* stuck = strikingFault(m_session, FaultKind::STUCK, m_named, m_chip.page())) {
        for (std::size_t i = from; i < from + count && i < sizeof stuck->mask; ++i) {
            const auto mask = static_cast<std::uint8_t>(stuck->mask >> (8 * i));
            const auto value = static_cast<std::uint8_t>(stuck->value >> (8 * i));
            message.bytes[i] =
                static_cast<std::uint8_t>((message.bytes[i] & ~mask) | (value & mask));
        }
    }
    m_wire.carry(message.bytes + from, count);
}

void Transfer::finish(int error, bool killed)
{
    m_session.failures += error == 0 ? 0 : 1;
    m_session.bytes += m_wire.bytes;
    m_session.bits += m_wire.bits;
    m_session.clock += m_wire.bits * BIT_US;
    if (m_session.busLog[0] != '\0') {
        const char* name = killed ? "SIGKILL" : error != 0 ? strerrorname_np(error) : nullptr;
        const std::string mark = name == nullptr ? "" : std::string(" ! ") + name;
        appendLine(m_session, m_session.busLog, m_wire.text + mark);
    }
    if (killed) {
        raise(SIGKILL);
    }
}

} // namespace

int transfer(Session& session, Message* messages, std::size_t count)
{
    BoardAccess board(session.board);
    if (!board.isOpen()) {
        std::fprintf(stderr, "virtual-board: %s\n", board.error().c_str());
        return EIO;
    }
    return Transfer(session, board, messages, count).run();
}

} // namespace virtualboard
