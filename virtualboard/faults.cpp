#include "faults.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "inputOptions.h"
#include "registers.h"

namespace virtualboard {

const char* const FAULT_HELP = R"(Faults: RULE is one of
  WHEN:WHAT             transfers fail. WHEN is
                          N or N-M or N-    the N-th transfer of the run, a range
                          /K                every K-th
                          code=XX[@PAGE]    those of command code XX (on one page)
                        each followed by *TIMES: only the first TIMES of them.
                        WHAT is nack, arbitration, timeout or eintr, or, with SIGKILL,
                        kill-before or kill-after (this process, before or after
                        it reaches the chip), kill-run (after it, every process of
                        the run) or power-off (the same, and the chip restarts from
                        its flash)
  WHEN:supply=N:VOLTS   during these transfers supply N has another voltage, as in
                        40-:supply=3:2.31 from the 40th on
  stuck=XX[@PAGE]:MASK=VALUE
                        the register's bits in MASK read as in VALUE
  keep=XX[@PAGE]        the register acknowledges writes and keeps its value
  open=ERRNO[*TIMES]    the bus can't be opened, for example open=EINTR*2
  busy                  the chip's address is taken by a driver (EBUSY)
  absent                the chip never answers
  silent-after=N        the chip answers nothing after transfer N
  store-silent=MS       after STORE_DEFAULT_ALL it answers nothing for MS ms
If several rules for transfers match, the first one applies.
XX, MASK and VALUE are hexadecimal. Time passes with sleeps, in their full length
whatever the time scale, and with transfers on a 100 kHz bus.
)";

namespace {

// Parses a rule from left to right, up to the first part that doesn't fit.
class Scanner {
public:
    explicit Scanner(const std::string& text) : m_at(text.c_str()) {}

    bool skip(const char* word)
    {
        const std::size_t length = std::strlen(word);
        if (std::strncmp(m_at, word, length) != 0) {
            return false;
        }
        m_at += length;
        return true;
    }

    bool require(const char* word) { return skip(word) || fail("'" + std::string(word) + "'"); }

    bool number(int base, std::uint64_t least, std::uint64_t most, const char* what,
                std::uint64_t& number)
    {
        char* end = nullptr;
        errno = 0;
        const unsigned long long parsed = std::strtoull(m_at, &end, base);
        // strtoull would take a sign, blanks and "0x" as well.
        const bool digits = base == 16
                                ? std::isxdigit(first()) != 0 && m_at[1] != 'x' && m_at[1] != 'X'
                                : std::isdigit(first()) != 0;
        if (!digits || errno != 0 || parsed < least || parsed > most) {
            return fail(what);
        }
        number = parsed;
        m_at = end;
        return true;
    }

    std::string word(const char* endings) const { return {m_at, std::strcspn(m_at, endings)}; }

    unsigned char first() const { return static_cast<unsigned char>(*m_at); }

    // Always false: `what` is expected here.
    bool fail(const std::string& what)
    {
        m_error = "expected " + what
                  + (*m_at == '\0' ? " at its end" : " at '" + std::string(m_at) + "'");
        return false;
    }

    bool volts(std::uint64_t& microvolts)
    {
        double decimal = 0;
        if (!parseDecimal(m_at, decimal) || decimal < 0 || decimal > VOLTS_MAX) {
            return fail("volts, 0 to 1000,");
        }
        microvolts = toMicrovolts(decimal);
        m_at += std::strlen(m_at);
        return true;
    }

    const std::string& error() const { return m_error; }

private:
    const char* m_at;
    std::string m_error;
};

// After "code=", "stuck=" or "keep=": XX[@PAGE].
bool parseRegister(Scanner& scan, Fault& fault)
{
    std::uint64_t code = 0;
    if (!scan.number(16, 0, 0xFF, "a command code, two hexadecimal digits,", code)) {
        return false;
    }
    fault.code = static_cast<int>(code);
    if (std::uint64_t page = 0; scan.skip("@")) {
        if (!scan.number(10, 0, 255, "a page, 0 to 255,", page)) {
            return false;
        }
        fault.page = static_cast<int>(page);
    }
    return true;
}

bool parseTimes(Scanner& scan, Fault& fault)
{
    return !scan.skip("*") || scan.number(10, 1, ALWAYS - 1, "how many times", fault.times);
}

bool parseWhen(Scanner& scan, Fault& fault)
{
    if (scan.skip("code=")) {
        return parseRegister(scan, fault);
    }
    if (scan.skip("/")) {
        return scan.number(10, 1, ALWAYS - 1, "a number from 1 on", fault.every);
    }
    if (!scan.number(10, 1, ALWAYS - 1, "a kind of fault, or a transfer's number,", fault.first)) {
        return false;
    }
    if (!scan.skip("-")) {
        fault.last = fault.first;
        return true;
    }
    // Without a second number the range is open.
    return std::isdigit(scan.first()) == 0
           || scan.number(10, fault.first, ALWAYS - 1, "a transfer not before the first",
                          fault.last);
}

// Behind "supply=": N:VOLTS.
bool parseSupply(Scanner& scan, Fault& fault)
{
    std::uint64_t supply = 0;
    fault.kind = FaultKind::SUPPLY;
    const bool named = scan.number(10, 0, Command::CHANNELS - 1, "a supply, 0 to 11,", supply);
    fault.supply = static_cast<int>(supply);
    return named && scan.require(":") && scan.volts(fault.value);
}

bool parseTransferFault(Scanner& scan, Fault& fault)
{
    static constexpr struct {
        const char* name;
        int error;
        Death death;
    } WHATS[] = {
        {"nack", ENXIO, Death::NONE},
        {"arbitration", EAGAIN, Death::NONE},
        {"timeout", ETIMEDOUT, Death::NONE},
        {"eintr", EINTR, Death::NONE},
        {"kill-before", EINTR, Death::PROCESS},
        {"kill-after", 0, Death::PROCESS},
        {"kill-run", 0, Death::RUN},
        {"power-off", 0, Death::POWER},
    };
    if (!parseWhen(scan, fault) || !parseTimes(scan, fault) || !scan.require(":")) {
        return false;
    }
    if (scan.skip("supply=")) {
        return parseSupply(scan, fault);
    }
    for (const auto& what : WHATS) {
        if (scan.word("") == what.name) {
            fault.error = what.error;
            fault.death = what.death;
            return scan.skip(what.name);
        }
    }
    return scan.fail(
        "nack, arbitration, timeout, eintr, kill-before, kill-after, kill-run, power-off or "
        "supply=");
}

// The errno that the C library knows by this name, 0 if none.
int errnoByName(const std::string& name)
{
    constexpr int LAST_ERRNO = 4095; // the kernel's largest
    for (int error = 1; error <= LAST_ERRNO; ++error) {
        const char* known = strerrorname_np(error);
        if (known != nullptr && name == known) {
            return error;
        }
    }
    return 0;
}

bool parseBody(Scanner& scan, Fault& fault)
{
    if (scan.skip("stuck=")) {
        fault.kind = FaultKind::STUCK;
        return parseRegister(scan, fault) && scan.require(":")
               && scan.number(16, 1, UINT64_MAX, "a mask, hexadecimal,", fault.mask)
               && scan.require("=")
               && scan.number(16, 0, UINT64_MAX, "a value, hexadecimal,", fault.value);
    }
    if (scan.skip("keep=")) {
        fault.kind = FaultKind::KEEP;
        return parseRegister(scan, fault);
    }
    if (scan.skip("open=")) {
        fault.kind = FaultKind::OPEN;
        const std::string name = scan.word("*");
        fault.error = errnoByName(name);
        return (fault.error != 0 || scan.fail("an errno, such as EACCES,"))
               && scan.skip(name.c_str()) && parseTimes(scan, fault);
    }
    if (scan.skip("busy")) {
        fault.kind = FaultKind::BUSY;
        return true;
    }
    if (scan.skip("store-silent=")) {
        fault.kind = FaultKind::STORE_SILENT;
        const bool fits = scan.number(10, 1, UINT32_MAX, "milliseconds from 1 on", fault.silence);
        fault.silence *= 1000;
        return fits;
    }
    if (scan.skip("absent")) {
        fault.error = ENXIO;
        return true;
    }
    if (scan.skip("silent-after=")) {
        fault.error = ENXIO;
        const bool fits = scan.number(10, 0, ALWAYS - 2, "a transfer's number", fault.first);
        ++fault.first;
        return fits;
    }
    return parseTransferFault(scan, fault);
}

} // namespace

bool parseFault(const std::string& rule, Fault& fault, std::string& error)
{
    fault = Fault{};
    Scanner scan(rule);
    const bool whole = parseBody(scan, fault) && (scan.first() == '\0' || scan.fail("its end"));
    error = scan.error();
    return whole;
}

} // namespace virtualboard
