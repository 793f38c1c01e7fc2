#include "standardStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

bool openStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        // For reading alone: a program that looks whether its output got out, learns that it
        // didn't.
        if (fcntl(stream, F_GETFD) == -1 && open("/dev/null", O_RDONLY) != stream) {
            std::fprintf(stderr, "A standard stream is closed, and /dev/null can't be opened.\n");
            return false;
        }
    }
    return true;
}
