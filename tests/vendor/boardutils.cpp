#include "boardUtils.h"

bool readRegister(int& value);

boardUtils::boardUtils() = default;
boardUtils::~boardUtils() = default;

int boardUtils::getVersion(int& version)
{
    return readRegister(version) ? 256 : 0;
}
