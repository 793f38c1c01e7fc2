// What the board utilities library needs.
#include <cstdlib>

bool readRegister(int& value)
{
    const char* const text = std::getenv("BOARD_VERSION");
    value = text == nullptr ? value : std::atoi(text);
    return text != nullptr;
}
