// Stand-in for the board's utilities library: the hardware version is the number
// in a one-line text file whose path is fixed when the library is built.
#include "boardUtils.h"

#include <fstream>
#include <string>

boardUtils::boardUtils() = default;
boardUtils::~boardUtils() = default;

int boardUtils::getVersion(int& version)
{
    std::ifstream file(BOARD_HW_VERSION_FILE);
    int number = 0;
    std::string rest;
    // A file with anything behind the number is not the one that we know.
    if (!(file >> number) || file >> rest) {
        return 0;
    }
    version = number;
    return 1;
}
