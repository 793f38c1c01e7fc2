#include "messages.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "text.h"

const char* programName = "";

void tell(const std::string& what)
{
    std::fflush(stdout); // keeps earlier output before the message
    std::fprintf(stderr, "%s: %s\n", programName, printable(what).c_str());
}

void tell(const std::string& file, unsigned int line, const std::string& what)
{
    tell(file + ":" + std::to_string(line) + ": " + what);
}

void print(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

bool flushOutput()
{
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    tell(std::string("standard output: ") + (errno == 0 ? "writing failed" : std::strerror(errno)));
    return false;
}

int finishOutput(int status)
{
    return flushOutput() ? status : STATUS_TROUBLE;
}
