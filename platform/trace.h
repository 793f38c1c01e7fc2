// The board's trace library (libtrace.so) as this system uses it: an object whose settings carry
// the current trace level. Used by main; src/log.h needs the places of settings and level alone.
#pragma once

#include <cstddef>
#include <cstdint>

/// What a trace object points to; may be changed while a process runs.
struct TraceSettings {
    std::int32_t level; ///< current trace level; the higher, the more is logged
};

/// The process's trace object. It has no virtual table: its first member is the pointer to its
/// settings, as in the board's own library.
class alignas(std::max_align_t) TraceObject {
public:
    /// Opens the system log under `identity`, with `level` as the trace level.
    TraceObject(const char* identity, int level);
    ~TraceObject();
    TraceObject(const TraceObject&) = delete;
    TraceObject& operator=(const TraceObject&) = delete;

    TraceSettings* m_settings; ///< null: nothing is logged

private:
    // Callers allocate the object by this declaration: ample room, 512 pointers with the first, for
    // the members of the board's own class. Only its own constructor writes there.
    [[maybe_unused]] void* m_reserved[511];
};

/// The process's trace object, or null while there is none. log.h declares it, too, for programs
/// that have the board's own header. NOLINTNEXTLINE(readability-redundant-declaration)
extern TraceObject* g_traceObject;
