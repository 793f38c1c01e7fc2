// Stand-in for the board's trace library: the level is the integer given to the constructor, the
// log is the system's.
#include "trace.h"

#include <syslog.h>

TraceObject* g_traceObject = nullptr;

TraceObject::TraceObject(const char* identity, int level) : m_settings(new TraceSettings{level})
{
    openlog(identity, LOG_PID, LOG_USER);
}

TraceObject::~TraceObject()
{
    closelog();
    delete m_settings;
}
