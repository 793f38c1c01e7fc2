// pmfile's own trace object: it needs no library of a board. Warnings and errors of the driver
// layer go to the system log; what the operator has to know is told in pmfile's own words.
#include "trace.h"

#include <syslog.h>

TraceObject* g_traceObject = nullptr;

TraceObject::TraceObject(const char* identity, int level) : m_settings(new TraceSettings{level})
{
    openlog(identity, 0, LOG_USER);
}

TraceObject::~TraceObject()
{
    closelog();
    delete m_settings;
}
