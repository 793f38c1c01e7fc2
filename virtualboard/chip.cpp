#include "chip.h"

#include <algorithm>

namespace virtualboard {

namespace {

// PMBus standard: STATUS_CML's bits, and CML in the low byte of STATUS_WORD.
constexpr std::uint8_t CML_INVALID_COMMAND = 0x80;
constexpr std::uint8_t CML_INVALID_DATA = 0x40;
constexpr std::uint8_t STATUS_CML_SUMMARY = 0x02;

void copyConfiguration(const Image& from, Image& to)
{
    for (const Register& reg : REGISTERS) {
        if (reg.kind == catalogue::Kind::SETTING) {
            std::copy_n(from.begin() + reg.offset, reg.size * reg.copies, to.begin() + reg.offset);
        }
    }
}

void fillFactory(const Register& reg, Image& image)
{
    for (int copy = 0; copy < reg.copies; ++copy) {
        const auto from = reg.offset + static_cast<std::size_t>(copy) * reg.size;
        factoryValue(reg, copy, image.data() + from);
    }
}

} // namespace

std::uint8_t* bytesOf(Image& image, int code, int page)
{
    const Register* reg = findRegister(code);
    if (reg == nullptr || reg->copies == 0 || !catalogue::isPage(page)
        || accessOn(*reg, page) == Command::NO) {
        return nullptr;
    }
    return image.data() + reg->positionOn(page);
}

std::int16_t wordOf(Image& image, int code, int page)
{
    const std::uint8_t* bytes = bytesOf(image, code, page);
    return static_cast<std::int16_t>(bytes[0] | bytes[1] << 8);
}

void makeFactoryMemory(Memory& memory)
{
    for (const Register& reg : REGISTERS) {
        fillFactory(reg, memory.ram);
    }
    memory.flash = memory.ram;
}

void powerUp(Memory& memory)
{
    for (const Register& reg : REGISTERS) {
        if (reg.kind == catalogue::Kind::STATE) {
            fillFactory(reg, memory.ram);
        }
    }
    copyConfiguration(memory.flash, memory.ram);
}

std::uint8_t& Chip::byteOf(int code)
{
    return *bytesOf(m_memory.ram, code, Command::ALL_PAGES);
}

int Chip::page() const
{
    return *bytesOf(m_memory.ram, Page::CODE, Command::ALL_PAGES);
}

void Chip::fault(std::uint8_t cmlBit)
{
    byteOf(StatusCML::CODE) |= cmlBit;
    byteOf(StatusWord::CODE) |= STATUS_CML_SUMMARY;
}

std::size_t Chip::receive(const std::uint8_t* bytes, std::size_t count, bool readFollows)
{
    m_named = nullptr;
    if (count == 0) {
        return 0;
    }
    const Register* reg = findRegister(bytes[0]);
    const std::uint32_t mask = reg == nullptr ? Command::NO : accessOn(*reg, page());
    if (mask == Command::NO) {
        fault(CML_INVALID_COMMAND);
        return 0;
    }
    if (count > 1 && (mask & ACCESS_WRITE) == 0) {
        fault(CML_INVALID_DATA);
        return 1;
    }
    if (!readFollows) {
        execute(*reg, bytes + 1, count - 1);
    } else if (count == 1) {
        m_named = reg;
    }
    return count;
}

void Chip::send(std::uint8_t* bytes, std::size_t count, std::size_t from)
{
    const bool readable = m_named != nullptr && (accessOn(*m_named, page()) & ACCESS_READ) != 0;
    const std::size_t size = readable ? m_named->size : 0;
    const std::size_t known = from < size ? std::min(count, size - from) : 0;
    if (known > 0) {
        std::copy_n(m_memory.ram.data() + m_named->positionOn(page()) + from, known, bytes);
    }
    if (known < count) {
        std::fill_n(bytes + known, count - known, std::uint8_t{0xFF});
        fault(CML_INVALID_DATA);
    }
}

void Chip::execute(const Register& reg, const std::uint8_t* data, std::size_t count)
{
    if (count < reg.size) {
        return;
    }
    if (count > reg.size) {
        fault(CML_INVALID_DATA);
        return;
    }
    if (catalogue::isProtected(reg.code, byteOf(WriteProtect::CODE))) {
        return;
    }
    switch (reg.code) {
    case Page::CODE:
        selectPage(data[0]);
        return;
    case ClearFaults::CODE:
        for (const Register& status : REGISTERS) {
            if (isStatus(status.code)) {
                fillFactory(status, m_memory.ram); // all clear
            }
        }
        return;
    case StoreDefaultAll::CODE:
        copyConfiguration(m_memory.ram, m_memory.flash);
        return;
    case RestoreDefaultAll::CODE:
        copyConfiguration(m_memory.flash, m_memory.ram);
        return;
    case Operation::CODE:
        if (page() == Command::ALL_PAGES) {
            std::fill_n(m_memory.ram.begin() + reg.offset, reg.copies, data[0]);
            return;
        }
        break;
    case MfrStoreSingle::CODE:
        storeSingle(data[0], data[1]);
        break;
    default:
        break;
    }
    std::copy_n(data, count, m_memory.ram.data() + reg.positionOn(page()));
}

void Chip::selectPage(std::uint8_t page)
{
    if (!catalogue::isPage(page)) {
        fault(CML_INVALID_DATA);
        return;
    }
    byteOf(Page::CODE) = page;
}

void Chip::storeSingle(std::uint8_t command, std::uint8_t page)
{
    const std::uint8_t* from = bytesOf(m_memory.ram, command, page);
    if (from == nullptr || findRegister(command)->kind != catalogue::Kind::SETTING) {
        fault(CML_INVALID_DATA);
        return;
    }
    std::copy_n(from, findRegister(command)->size, bytesOf(m_memory.flash, command, page));
}

} // namespace virtualboard
