// The log statement: one syslog message with the source file, line and function before its text, if
// the current trace level admits its tag. Every file of the system reports its diagnostics through
// it.
#pragma once

#include <syslog.h>

#include <cstdint>
#include <cstring>

/// The board's trace object (trace.h), or null while there is none. Here its class is but a name,
/// so that files which log do without the board's header.
class TraceObject;
extern TraceObject* g_traceObject;

/// A level tag: the least trace level at which its statements are emitted, and the priority with
/// which syslog gets them.
struct LogLevel {
    std::int32_t threshold;
    int priority;
};

inline constexpr LogLevel LOG_LEVEL_ERROR{3, LOG_ERR};
inline constexpr LogLevel LOG_LEVEL_WARNING{4, LOG_WARNING};
inline constexpr LogLevel LOG_LEVEL_INFO{6, LOG_INFO};
inline constexpr LogLevel LOG_LEVEL_DEBUG{7, LOG_DEBUG};
inline constexpr LogLevel LOG_LEVEL_DEBUG1{7, LOG_DEBUG};
inline constexpr LogLevel LOG_LEVEL_DEBUG2{8, LOG_DEBUG};
inline constexpr LogLevel LOG_LEVEL_DEBUG3{9, LOG_DEBUG};

/// Whether the trace object admits `level` now. Read afresh by every statement: the level may
/// change while the process runs. The object begins with a pointer to its settings, which may be
/// null, and these with the level; what a board's own header calls them is all the same.
inline bool logAdmits(const LogLevel& level)
{
    if (g_traceObject == nullptr) {
        return false;
    }
    const void* settings = nullptr;
    std::memcpy(&settings, static_cast<const void*>(g_traceObject), sizeof(settings));
    if (settings == nullptr) {
        return false;
    }
    std::int32_t current = 0;
    std::memcpy(&current, settings, sizeof(current));
    return current >= level.threshold;
}

/// The part of `path` after its last slash.
constexpr const char* logBaseName(const char* path)
{
    const char* name = path;
    for (const char* at = path; *at != '\0'; ++at) {
        if (*at == '/') {
            name = at + 1;
        }
    }
    return name;
}

/// LOG(tag, "literal format", arguments...) logs on behalf of the function that holds it. The
/// arguments are evaluated only if the trace level admits the tag.
#define LOG(tag, ...) LOG_STATEMENT(#tag, LOG_LEVEL_##tag, __func__, __VA_ARGS__)

/// The same on behalf of `function` (a string), for helpers of that function.
#define LOG_AS(function, tag, ...) LOG_STATEMENT(#tag, LOG_LEVEL_##tag, function, __VA_ARGS__)

#define LOG_STATEMENT(tag, level, function, message, ...)                                          \
    do {                                                                                           \
        if (logAdmits(level)) {                                                                    \
            static constexpr const char* logFile = logBaseName(__FILE__);                          \
            syslog((level).priority, "[" tag "] %s:%d (%s) - " message, logFile, __LINE__,         \
                   function __VA_OPT__(, ) __VA_ARGS__);                                           \
        }                                                                                          \
    } while (false)
