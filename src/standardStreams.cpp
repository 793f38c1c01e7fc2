#include "standardStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

bool openStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        // Read-only: a program that checks whether its output could be written learns that it
        // couldn't.
        if (fcntl(stream, F_GETFD) == -1 && open("/dev/null", O_RDONLY) != stream) {
            std::fprintf(stderr, "A standard stream is closed, and /dev/null can't be opened.\n");
            return false;
        }
    }
    return true;
}
