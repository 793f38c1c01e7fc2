// The shim's system log: a run may keep a log of its own.

// The checked forms of syslog are defined here beside the plain ones.
#undef _FORTIFY_SOURCE

#include "shim.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "session.h"

namespace virtualboard {

namespace {

// One message, one line: as syslog daemons do, control characters become '#' and three octal
// digits.
std::string logLine(int priority, const std::string& message)
{
    static constexpr const char* PRIORITIES[] = {"emerg",   "alert",  "crit", "err",
                                                 "warning", "notice", "info", "debug"};
    std::string line = std::string(PRIORITIES[LOG_PRI(priority)]) + ": ";
    for (const char character : message) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte != 0x7F) {
            line += character;
            continue;
        }
        char octal[5];
        std::snprintf(octal, sizeof(octal), "#%03o", static_cast<unsigned int>(byte));
        line += octal;
    }
    return line;
}

// Writes the message to the run's own log; false if it has none and the system's log is meant.
bool logMessage(int priority, const char* format, va_list arguments)
{
    const Session* session = joinSession();
    if (session == nullptr || session->log[0] == '\0') {
        return false;
    }
    if ((setlogmask(0) & LOG_MASK(LOG_PRI(priority))) == 0) {
        return true;
    }
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) < 0) {
        return true; // out of memory: syslog itself reports nothing then
    }
    std::string message(text);
    std::free(text);
    if (!message.empty() && message.back() == '\n') {
        message.pop_back();
    }
    appendLine(*session, session->log, logLine(priority, message));
    return true;
}

} // namespace

} // namespace virtualboard

using namespace virtualboard;

extern "C" {

INTERPOSED void vsyslog(int priority, const char* format, va_list arguments)
{
    if (!logMessage(priority, format, arguments)) {
        next<void(int, const char*, va_list)>("vsyslog")(priority, format, arguments);
    }
}

INTERPOSED void syslog(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

// What syslog becomes in programs built with FORTIFY_SOURCE.
INTERPOSED void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments)
{
    if (!logMessage(priority, format, arguments)) {
        next<void(int, int, const char*, va_list)>("__vsyslog_chk")(priority, flag, format,
                                                                    arguments);
    }
}

INTERPOSED void __syslog_chk(int priority, int flag, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    __vsyslog_chk(priority, flag, format, arguments);
    va_end(arguments);
}

} // extern "C"
