#include "board.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <random>

#include "descriptor.h"

namespace virtualboard {

namespace {

constexpr std::array<char, 16> MAGIC{"virtual-board\n"};
constexpr std::uint8_t FORMAT = 2;
constexpr std::uint8_t FORMAT_WITHOUT_SUPPLIES = 1;
constexpr int FACTORY_HARDWARE_VERSION = 3;

// The size of a file of this format, 0 if there is none.
std::size_t sizeOf(std::uint8_t format)
{
    return format == FORMAT                    ? sizeof(BoardState)
           : format == FORMAT_WITHOUT_SUPPLIES ? sizeof(BoardState) - sizeof(Supplies)
                                               : 0;
}

// FNV-1a, enough to tell a damaged file, of the first bytes of it.
NumberBytes checksumOf(const BoardState& state, std::size_t count)
{
    std::uint32_t sum = 2166136261U;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&state);
    for (std::size_t i = 0; i < count; ++i) {
        sum = (sum ^ bytes[i]) * 16777619U;
    }
    return toBytes(sum);
}

bool writeState(int fd, BoardState& state)
{
    state.checksum = checksumOf(state, offsetof(BoardState, checksum));
    const ssize_t written = pwrite(fd, &state, sizeof(state), 0);
    if (written >= 0 && written != ssize_t{sizeof(state)}) {
        errno = ENOSPC;
    }
    return written == ssize_t{sizeof(state)};
}

BoardState makeFactoryState()
{
    BoardState state{};
    state.magic = MAGIC;
    state.format = FORMAT;
    state.hardwareKnown = 1;
    state.hardwareVersion = toBytes(FACTORY_HARDWARE_VERSION);
    state.id = toBytes(std::random_device{}());
    makeFactoryMemory(state.chip);
    return state;
}

// Writes a new board to the temporary file and gives it its name, if that is still free: of several
// processes one makes the board, all find it whole.
bool publish(int fd, const std::string& temporary, const std::string& path)
{
    BoardState state = makeFactoryState();
    return fchmod(fd, modeOfNewFile()) == 0 && writeState(fd, state)
           && (takeFreeName(temporary.c_str(), path.c_str()) || errno == EEXIST);
}

} // namespace

bool createBoard(const std::string& path, std::string& error)
{
    if (access(path.c_str(), F_OK) == 0) {
        return true;
    }
    std::string temporary = path + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    const bool made = fd >= 0 && publish(fd, temporary, path);
    if (!made) {
        error = "cannot make the board " + path + ": " + std::strerror(errno);
    }
    if (fd >= 0) {
        unlink(temporary.c_str());
        close(fd);
    }
    return made;
}

BoardAccess::BoardAccess(const char* path) : m_lock(path), m_path(path)
{
    if (m_lock.error() != 0) {
        m_error = "cannot use the board " + m_path + ": " + std::strerror(m_lock.error());
        return;
    }
    load();
}

void BoardAccess::load()
{
    struct stat status = {};
    ssize_t count = -1;
    if (fstat(m_lock.fd(), &status) == 0 && S_ISREG(status.st_mode)) {
        count = pread(m_lock.fd(), &m_state, sizeof(m_state), 0);
    }
    const std::size_t size = sizeOf(m_state.format);
    if (count <= ssize_t{offsetof(BoardState, format)} || m_state.magic != MAGIC
        || (size != 0 && (status.st_size != count || static_cast<std::size_t>(count) != size))) {
        m_error = m_path + " is not a virtual board's memory";
        return;
    }
    if (size == 0) {
        m_error = m_path + " is a board's memory of another version of virtual-board";
        return;
    }
    const NumberBytes expected = checksumOf(m_state, size - sizeof(m_state.checksum));
    if (m_state.format == FORMAT_WITHOUT_SUPPLIES) {
        std::memcpy(&m_state.checksum, &m_state.supplies, sizeof(m_state.checksum));
        m_state.supplies = {};
        m_state.format = FORMAT;
    }
    if (m_state.checksum != expected || m_state.hardwareKnown > 1
        || !catalogue::isPage(*bytesOf(m_state.chip.ram, Page::CODE, Command::ALL_PAGES))) {
        m_error = m_path + " is a virtual board's memory, but damaged";
    }
    m_saved = m_state;
}

void BoardAccess::powerUp()
{
    virtualboard::powerUp(m_state.chip);
    startWatching(m_state.supplies, m_state.chip.ram);
}

bool BoardAccess::hardwareVersion(int& version) const
{
    if (m_state.hardwareKnown == 0) {
        return false;
    }
    version = static_cast<std::int32_t>(toNumber(m_state.hardwareVersion));
    return true;
}

void BoardAccess::setHardwareVersion(bool known, int version)
{
    m_state.hardwareKnown = known ? 1 : 0;
    m_state.hardwareVersion = toBytes(static_cast<std::uint32_t>(version));
}

key_t BoardAccess::privateKey(key_t key) const
{
    // A multiplicative hash, so that neighbouring keys land far apart.
    const auto number = static_cast<std::uint32_t>(key) * 2654435761U ^ toNumber(m_state.id);
    const auto own = static_cast<key_t>(number);
    return own == IPC_PRIVATE || own == key ? key + 1 : own;
}

bool BoardAccess::save()
{
    if (std::memcmp(&m_state, &m_saved, sizeof(m_state)) == 0) {
        return true;
    }
    if (!writeState(m_lock.fd(), m_state)) {
        m_error = "cannot save the board " + m_path + ": " + std::strerror(errno);
        return false;
    }
    m_saved = m_state;
    return true;
}

} // namespace virtualboard
