// Any bytes as a command line, split at line ends.
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <vector>

#include "CommandLine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<std::string> words{"pmadmin"};
    for (std::string word; std::getline(text, word);) {
        words.push_back(word);
    }
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    optind = 0; // a new scan
    opterr = 0;
    const CommandLine commandLine(static_cast<int>(words.size()), argv.data());
    if (!commandLine.isValid() && !commandLine.getFileName().empty()) {
        std::abort(); // a refused command line took a file
    }
    return 0;
}
