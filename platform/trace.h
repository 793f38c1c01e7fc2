// The board's trace library (libtrace.so) as this system uses it: an object whose settings carry
// the current trace level. Used by src/log.h and by main.
#pragma once

#include <cstdint>

/// What a trace object points to; may be changed while a process runs.
struct TraceSettings {
    std::int32_t level; ///< current trace level; the higher, the more is logged
};

/// The process's trace object. It has no virtual table: its first member is the pointer to its
/// settings, as in the board's own library.
class TraceObject {
public:
    /// Opens the system log under `identity`, with `level` as the trace level.
    TraceObject(const char* identity, int level);
    ~TraceObject();
    TraceObject(const TraceObject&) = delete;
    TraceObject& operator=(const TraceObject&) = delete;

    TraceSettings* m_settings; ///< null: nothing is logged

private:
    // Callers allocate the object by this declaration. Ample room, sixteen pointers with the first,
    // for the members of the board's own class.
    [[maybe_unused]] void* m_reserved[15] = {};
};

/// The process's trace object, or null while there is none.
extern TraceObject* g_traceObject;
