// The command line of pmstatus.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "readSupplies.h"

enum class Form : std::uint8_t { TEXT, BRIEF, JSON, PROMETHEUS };

struct Options {
    Form form = Form::TEXT;
    bool help = false;
    bool version = false;
    bool all = false;
    bool clear = false;
    std::optional<unsigned int> watchSeconds;
    std::optional<std::string> namesPath;
    std::vector<std::string> files; ///< to forecast, one after the other
    ReadingRequest reading;
};

extern const char* const HELP;

/// Takes the options. Returns what is wrong with them, in words; empty if nothing is.
std::string takeOptions(int argc, char** argv, Options& options);
