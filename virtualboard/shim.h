// What the preloaded shim's files share. Each function in them replaces the C library's (or the
// board library's) of the same name, does the virtual board's part, and passes everything else on.
#pragma once

#include <dlfcn.h>

/// Marks functions that the shim exports to the processes into which it is preloaded.
#define INTERPOSED __attribute__((visibility("default")))

namespace virtualboard {

/// The definition of `name` that the shim's own replaces.
template <typename Function> Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace virtualboard
