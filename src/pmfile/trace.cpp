// pmfile's own trace object: it needs no library of a board. Warnings and errors of the driver
// layer go to standard error.
#include "trace.h"

#include <syslog.h>

TraceObject* g_traceObject = nullptr;

TraceObject::TraceObject(const char* identity, int level) : m_settings(new TraceSettings{level})
{
    openlog(identity, LOG_PERROR, LOG_USER);
}

TraceObject::~TraceObject()
{
    closelog();
    delete m_settings;
}
