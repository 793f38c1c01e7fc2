#include "trace.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <syslog.h>

#include <cstdlib>

TraceObject* g_traceObject = std::getenv("TRACE_EARLY") == nullptr ? nullptr : new TraceObject("early", 6);

TraceObject::TraceObject(const char* name, int level) : title(name)
{
    if (g_traceObject != nullptr) {
        std::abort(); // there is one
    }
    // Whoever likes changes the level while the program runs: it lies in a file.
    void* const file = mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED, open("level", O_RDWR), 0);
    configuration = static_cast<Configuration*>(file);
    configuration->threshold = level;
    openlog("vendor", LOG_PERROR, LOG_USER);
}

TraceObject::~TraceObject()
{
    munmap(configuration, sizeof(int));
}
