// Stand-in for the board's utilities library: the hardware version is the number in a one-line text
// file whose path is fixed when the library is built.
#include "boardUtils.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

boardUtils::boardUtils() = default;
boardUtils::~boardUtils() = default;

int boardUtils::getVersion(int& version)
{
    std::FILE* file = std::fopen(BOARD_HW_VERSION_FILE, "re");
    if (file == nullptr) {
        return 0;
    }
    char text[64] = "";
    const std::size_t size = std::fread(text, 1, sizeof(text) - 1, file);
    std::fclose(file);

    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text, &end, 10);
    // A file with anything after the number has a format that we don't know.
    const bool isNumber = end != text && end + std::strspn(end, " \t\r\n") == text + size;
    if (!isNumber || errno != 0 || number < INT_MIN || number > INT_MAX) {
        return 0;
    }
    version = static_cast<int>(number);
    return 1;
}
