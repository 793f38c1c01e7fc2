#include "messages.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "text.h"

void tell(const std::string& what)
{
    std::fflush(stdout); // keeps earlier output before the message
    std::fprintf(stderr, "pmfile: %s\n", printable(what).c_str());
}

void tell(const std::string& file, unsigned int line, const std::string& what)
{
    tell(file + ":" + std::to_string(line) + ": " + what);
}

void print(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

int finishOutput(int status)
{
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return status;
    }
    tell(std::string("standard output: ") + (errno == 0 ? "writing failed" : std::strerror(errno)));
    return STATUS_TROUBLE;
}
