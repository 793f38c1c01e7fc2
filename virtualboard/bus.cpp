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

// What goes over the wire in a transfer, in bus notation.
class Wire {
public:
    void start(const Message& message)
    {
        char text[12];
        std::snprintf(text, sizeof text, "%s %02X%c", m_text.empty() ? "S" : " Sr",
                      static_cast<unsigned>(message.address), message.read ? 'r' : 'w');
        m_text += text;
        ++m_bits;
        ++m_bytes;
    }

    void carry(const std::uint8_t* bytes, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i) {
            static constexpr char DIGITS[] = "0123456789ABCDEF";
            m_text += {' ', DIGITS[bytes[i] >> 4], DIGITS[bytes[i] & 0xF]};
        }
        m_bytes += count;
    }

    void refuse() { m_text += " N"; }

    void stop()
    {
        m_text += " P";
        ++m_bits;
    }

    /// Marks the transfer's line with the name of what ended it.
    void mark(const char* name) { m_text += std::string(" ! ") + name; }

    std::uint64_t bytes() const { return m_bytes; }
    std::uint64_t bits() const { return m_bits + m_bytes * BITS_PER_BYTE; }
    const std::string& text() const { return m_text; }

private:
    std::string m_text;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_bits = 0; // start and stop conditions
};

// One transfer while it holds the board.
class Transfer {
public:
    Transfer(Session& session, BoardAccess& board, Message* messages, std::size_t count)
        : m_session(session),
          m_board(board),
          m_chip(board.chip()),
          m_messages(messages),
          m_count(count),
          m_page(m_chip.page())
    {
    }

    int run();

private:
    int code() const;
    int fail(Effect effect);
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
    int m_page;        // selected when the transfer begins
    int m_named = ANY; // command code that a read is about
    Wire m_wire;
};

// The command code that the transfer begins with.
int Transfer::code() const
{
    const Message& first = m_messages[0];
    return first.read || first.size == 0 || first.address != CHIP_ADDRESS ? ANY : first.bytes[0];
}

int Transfer::run()
{
    ++m_session.transfers;
    const Fault* fault = strikingFault(m_session, FaultKind::TRANSFER, code(), m_page);
    const Effect effect = fault == nullptr ? Effect::NONE : fault->effect;
    int error = 0;
    if (effect != Effect::NONE && effect != Effect::KILL_AFTER) {
        error = fail(effect);
    } else if (m_session.clock < m_session.silentUntil) {
        error = fail(Effect::NACK);
    } else {
        error = perform();
        m_wire.stop();
    }
    if (!m_board.save()) {
        std::fprintf(stderr, "virtual-board: %s\n", m_board.error().c_str());
        error = EIO;
    }
    finish(error, effect == Effect::KILL_BEFORE || effect == Effect::KILL_AFTER);
    return error;
}

// An attempt that doesn't reach the chip. Its line shows what it tried to say.
int Transfer::fail(Effect effect)
{
    m_wire.start(m_messages[0]);
    if (effect == Effect::NACK) {
        m_wire.refuse();
    } else if (!m_messages[0].read) {
        m_wire.carry(m_messages[0].bytes, m_messages[0].size);
    }
    m_wire.stop();
    switch (effect) {
    case Effect::NACK:
        return ENXIO;
    case Effect::ARBITRATION:
        return EAGAIN;
    case Effect::TIMEOUT:
        return ETIMEDOUT;
    default:
        return EINTR;
    }
}

int Transfer::perform()
{
    for (std::size_t i = 0; i < m_count; ++i) {
        Message& message = m_messages[i];
        m_wire.start(message);
        if (message.address != CHIP_ADDRESS) {
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
    if (m_named == code::STORE_DEFAULT_ALL && message.size == 1) {
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
    m_session.bytes += m_wire.bytes();
    m_session.bits += m_wire.bits();
    m_session.clock += m_wire.bits() * BIT_US;
    if (killed) {
        m_wire.mark("SIGKILL");
    } else if (error != 0) {
        m_wire.mark(strerrorname_np(error));
    }
    if (m_session.busLog[0] != '\0') {
        appendLine(m_session, m_session.busLog, m_wire.text());
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
