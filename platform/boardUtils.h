// The board's utilities library (libboardutils.so) as this system uses it: the hardware version of
// the board. Used by PowerFileHandler::compareHwVersions.
#pragma once

#include <cstddef>

class alignas(std::max_align_t) boardUtils {
public:
    boardUtils();
    ~boardUtils(); // NOLINT(performance-trivially-destructible): the board's own does more
    boardUtils(const boardUtils&) = delete;
    boardUtils& operator=(const boardUtils&) = delete;

    /// Stores the board's hardware version in `version`. Returns non-zero on success; 0 if the
    /// version is unknown: don't use `version` then.
    int getVersion(int& version);

private:
    // Callers allocate the object by this declaration: ample room, 512 pointers, for the members of
    // the board's own class. Only its own constructor writes there.
    [[maybe_unused]] void* m_reserved[512];
};
