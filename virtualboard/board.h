// The board's memory file: made with factory settings on first use, locked and loaded for one
// transfer, written back whole. Used by the bus, the launcher and tests that look into a board.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>

#include "bytes.h"
#include "chip.h"
#include "fileLock.h"
#include "supplies.h"

namespace virtualboard {

/// The file's content. Bytes alone, numbers with the high byte first, so that every machine reads
/// every board. It fits into one page of memory: a kill can't cut the write that puts it back.
struct BoardState {
    std::array<char, 16> magic;
    std::uint8_t format;
    std::uint8_t hardwareKnown; ///< 0: the hardware version is unknown
    NumberBytes hardwareVersion;
    NumberBytes id; ///< random, makes the lock's key unique
    Memory chip;
    Supplies supplies;    ///< not in files of the first format
    NumberBytes checksum; ///< of everything before it
};
static_assert(alignof(BoardState) == 1 && sizeof(BoardState) <= 4096);

/// Makes the file with factory settings unless it exists. On failure returns false with the reason
/// in `error`.
bool createBoard(const std::string& path, std::string& error);

/// Holds a board for as long as the object lives; FileLock says what that means.
class BoardAccess {
public:
    /// Waits for the board, then loads it. `isOpen` tells whether that succeeded.
    explicit BoardAccess(const char* path);

    bool isOpen() const { return m_error.empty(); }
    /// Why the board could not be opened or saved, with the file's name.
    const std::string& error() const { return m_error; }

    Memory& chip() { return m_state.chip; }
    Supplies& supplies() { return m_state.supplies; }

    /// Starts the chip from its flash, with the supplies as they are.
    void powerUp();

    /// False: the board does not report a hardware version.
    bool hardwareVersion(int& version) const;
    void setHardwareVersion(bool known, int version);

    /// The System V key that stands for `key` on this board. Never IPC_PRIVATE.
    key_t privateKey(key_t key) const;

    /// Writes changes back to the file. False, with `error` set, on failure.
    bool save();

private:
    void load();

    FileLock m_lock;
    BoardState m_state{};
    BoardState m_saved{}; ///< what the file holds
    std::string m_path;
    std::string m_error;
};

} // namespace virtualboard
