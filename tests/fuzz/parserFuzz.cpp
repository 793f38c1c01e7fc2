// Any bytes as a PM data file: what is not refused is whole.
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "PowerFileParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::string path = "parserFuzz." + std::to_string(getpid());
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::ofstream(path, std::ios::binary) << text;

    PowerFileParser parser;
    const std::string digits = parser.parseFile(path);
    if (parser.getError().empty() && digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        std::abort(); // a broken record was not noticed
    }
    std::vector<Command*> list;
    parser.loadCommands(list);
    for (Command* command : list) {
        command->toString();
        delete command;
    }
    parser.parseLine(text);
    return 0;
}
