// A vendor's trace library, whose class is larger than the stand-in, with other names.
#pragma once

#include <cstddef>
#include <string>

struct Configuration {
    int threshold;
};

class TraceObject {
public:
    TraceObject(const char* name, int level);
    ~TraceObject();
    Configuration* configuration;
    std::string title;
    alignas(std::max_align_t) char history[1500] = {};
};
extern TraceObject* g_traceObject;
