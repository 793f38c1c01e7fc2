// Any bytes as a PM data file: it is loaded whole or refused whole.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>

#include "PowerFileParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::string path = "parserFuzz." + std::to_string(getpid());
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));

    PowerFileParser parser;
    const std::string digits = parser.parseFile(path);
    std::vector<Command*> list;
    parser.loadCommands(list);
    if (!parser.getError().empty() && (!digits.empty() || !list.empty())) {
        std::abort(); // a broken file left something behind
    }
    for (Command* command : list) {
        command->toString();
        delete command;
    }
    parser.parseLine(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
