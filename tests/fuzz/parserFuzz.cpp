// Any bytes as a PM data file. What pmadmin does not refuse is whole, and pmfile's list of it gives it again.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "PowerFileParser.h"
#include "check.h"
#include "list.h"
#include "textFile.h"

namespace {

constexpr std::size_t MOST_BYTES = 65536; // of a file that can be made

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

void turnRound(const std::string& path, const PmFile& file)
{
    FILE* const output = std::exchange(stdout, std::fopen((path + ".list").c_str(), "w"));
    require(source(path) == 0);
    std::fclose(std::exchange(stdout, output));
    require(make(path + ".list", path + ".made", {"all"}) == 0);
    std::string text;
    std::string error;
    require(readText(path + ".made", text, error) && PmFile("", text).bytes == file.bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::string path = "parserFuzz." + std::to_string(getpid());
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::ofstream(path, std::ios::binary) << text;

    PowerFileParser parser;
    const std::string digits = parser.parseFile(path);
    require(!parser.getError().empty() || digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos);
    std::vector<Command*> list;
    parser.loadCommands(list);
    for (Command* command : list) {
        command->toString();
        delete command;
    }
    parser.parseLine(text);

    const PmFile file("", text);
    findComplaints(file, {});
    const bool loadable = parser.getError().empty() && !file.entries.empty();
    std::string error;
    require(isLoadable(file, error) == loadable);
    if (loadable && file.bytes.size() <= MOST_BYTES) {
        turnRound(path, file);
    }
    return 0;
}
