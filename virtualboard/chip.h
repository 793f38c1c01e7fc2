// The chip: its memory and what it does with the messages that reach it. Used by the bus, which
// decides what reaches it, and by the code that sets up a board.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "registers.h"

namespace virtualboard {

/// An image of all registers, laid out by REGISTERS, bytes in bus order.
using Image = std::array<std::uint8_t, IMAGE_SIZE>;

/// What a powered chip holds. The selected page is RAM's register PAGE.
struct Memory {
    Image ram;
    Image flash;
};

/// The bytes of register `code` on `page`, or null if it is not there. They belong to
/// `image`; the count is findRegister(code)->size.
std::uint8_t* bytesOf(Image& image, int code, int page);

/// The number in a word register that the page has.
std::int16_t wordOf(Image& image, int code, int page);

/// Both images as they leave the factory.
void makeFactoryMemory(Memory& memory);

/// Power-up: the configuration comes from flash, the rest takes its fixed values.
void powerUp(Memory& memory);

/// The chip for the length of one transfer, from start to stop.
class Chip {
public:
    explicit Chip(Memory& memory) : m_memory(memory) {}

    /// The selected page.
    int page() const;

    /// Carries out a write message, unless a repeated start for a read follows it.
    /// Returns how many of the bytes were acknowledged; the first that isn't ends the transfer.
    std::size_t receive(const std::uint8_t* bytes, std::size_t count, bool readFollows);

    /// Answers `count` bytes of a read message, `from` bytes into it, with the register that the
    /// last write message named.
    void send(std::uint8_t* bytes, std::size_t count, std::size_t from);

private:
    void execute(const Register& reg, const std::uint8_t* data, std::size_t count);
    void selectPage(std::uint8_t page);
    void storeSingle(std::uint8_t command, std::uint8_t page);
    void fault(std::uint8_t cmlBit);
    std::uint8_t& byteOf(int code);

    Memory& m_memory;
    const Register* m_named = nullptr; ///< by the last write message, for a read
};

} // namespace virtualboard
