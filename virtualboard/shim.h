// What the preloaded shim's files share. Each function in them stands before the C library's (or
// the board library's) of the same name, does the virtual board's part, and hands everything else
// on.
#pragma once

#include <dlfcn.h>

/// Marks what the shim shows to the processes that it is preloaded into.
#define INTERPOSED __attribute__((visibility("default")))

namespace virtualboard {

/// The definition of `name` that the shim's own stands before.
template <typename Function> Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace virtualboard
