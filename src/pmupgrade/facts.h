// What pmupgrade takes from the JSON of the programs that it runs, and keeps in its own notes.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// How a supply or a sensor is.
struct RailState {
    std::string place; ///< "channel 3", and its name where it has one
    std::string state; ///< "good", "warning" or "fault"
    bool runs;         ///< of a sensor: false
    std::string now;   ///< "2.500 V"; empty if there is no reading
};

/// By their pages.
using RailStates = std::map<int, RailState>;

/// What `pmstatus --json` says.
struct SupplyStates {
    int model;
    int writeProtect;
    bool isFault; ///< the exit status says so: something that is shown is a fault
    RailStates rails;
    std::set<int> faultsAtEnd;         ///< with a file: the pages that it would leave with a fault
    std::vector<std::string> forecast; ///< with a file, in words: what would be beyond a limit
};

/// Empty if the text is nothing that pmstatus prints.
std::optional<SupplyStates> parseStates(const std::string& text);

/// What `pmfile show --json` says of a file.
struct FileFacts {
    std::string version;         ///< "2.5", or "without a version"
    std::optional<int> hardware; ///< the lowest hardware version, if there is a version record
    std::optional<std::string> serial;   ///< the bytes in hexadecimal; empty if it is not set
    std::optional<std::string> location; ///< the same
    std::string serialText;              ///< for people
    std::string locationText;
};

std::optional<FileFacts> parseFile(const std::string& text);

/// Which chip it is. All chips bear the same from the factory.
struct Identity {
    std::string serial; ///< in hexadecimal
    std::string location;

    bool operator==(const Identity&) const = default;
};

/// Whether the chip may be one that bears either of them, or is between the two.
bool isBetween(const Identity& chip, const Identity& one, const Identity& other);

/// Whether it is what each chip bears from the factory.
bool isFactory(const Identity& identity);
