// Fault rules and their grammar. Used by the launcher, which parses them, and by the session, which
// finds the one that applies.
#pragma once

#include <cstdint>
#include <string>

namespace virtualboard {

/// The grammar of the rules, as --help shows it.
extern const char* const FAULT_HELP;

enum class FaultKind : std::uint8_t { TRANSFER, STUCK, KEEP, OPEN, BUSY, STORE_SILENT, SUPPLY };

/// Who is killed when a transfer is done.
enum class Death : std::uint8_t {
    NONE,
    PROCESS, ///< the one that makes the transfer
    RUN,     ///< every process of the run
    POWER,   ///< the same, and the chip starts from its flash
};

inline constexpr int ANY = -1;
inline constexpr std::uint64_t ALWAYS = UINT64_MAX;

/// One rule, plain data for the session's shared memory.
struct Fault {
    FaultKind kind = FaultKind::TRANSFER;
    int error = 0; ///< errno of the failure; 0: nothing fails
    Death death = Death::NONE;
    int code = ANY;          ///< of the register that it concerns
    int page = ANY;          ///< that the chip has selected
    int supply = ANY;        ///< SUPPLY: which one
    std::uint64_t first = 0; ///< transfers, counted from 1 over the run
    std::uint64_t last = ALWAYS;
    std::uint64_t every = 1;      ///< only multiples of this number
    std::uint64_t times = ALWAYS; ///< how often it may still strike
    bool struck = false;          ///< at least once
    std::uint64_t mask = 0;       ///< STUCK: these bits of the number read ...
    std::uint64_t value = 0;      ///< ... show this; SUPPLY: microvolts
    std::uint64_t silence = 0;    ///< STORE_SILENT: microseconds
};

/// Parses RULE as FAULT_HELP describes. False, with what is wrong and where in `error`, if it is
/// not a rule.
bool parseFault(const std::string& rule, Fault& fault, std::string& error);

} // namespace virtualboard
