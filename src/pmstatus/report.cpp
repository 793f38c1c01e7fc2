#include "report.h"

#include <algorithm>
#include <bit>
#include <iterator>

#include "pmFile.h"
#include "text.h"

namespace {

struct Bit {
    unsigned int mask;
    const char* name;
};

// PMBus standard and data sheets of siblings.
constexpr unsigned int VOUT = 0x8000;
constexpr unsigned int MFR_SPECIFIC = 0x1000;
constexpr unsigned int OVERVOLTAGE = 0x0020;
constexpr unsigned int TEMPERATURE = 0x0004;
constexpr unsigned int CML = 0x0002;
constexpr Bit STATUS_WORD_BITS[] = {
    {VOUT, "output voltage"},       {MFR_SPECIFIC, "manufacturer specific"},
    {0x0800, "power good negated"}, {OVERVOLTAGE, "overvoltage fault"},
    {TEMPERATURE, "temperature"},   {CML, "communication"},
    {0x0001, "something else"},
};
constexpr Bit STATUS_CML_BITS[] = {{0x80, "unknown command"}, {0x40, "wrong data"}};

template <std::size_t Count>
std::vector<std::string> namesOf(unsigned int bits, const Bit (&known)[Count])
{
    std::vector<std::string> names;
    for (unsigned int mask = 0x8000; mask != 0; mask >>= 1) {
        if ((bits & mask) == 0) {
            continue;
        }
        const auto* const bit = std::ranges::find(known, mask, &Bit::mask);
        names.push_back(bit != std::end(known) ? bit->name
                                               : "bit " + std::to_string(std::countr_zero(mask)));
    }
    return names;
}

/// A sensor or channel is used if a setting is not the factory's, or if a fault is latched.
bool isShown(const Rail& rail)
{
    return rail.isConfigured
           || std::ranges::any_of(judge(rail), [](const RailComplaint& complaint) {
                  return complaint.state == State::FAULT;
              });
}

/// Whether anything in the list satisfies the condition.
bool anyOf(const std::vector<RailReport>& rails, bool (*holds)(const Rail& rail))
{
    return std::ranges::any_of(rails,
                               [&](const RailReport& report) { return holds(*report.rail); });
}

/// The bits of STATUS_WORD for which nothing that is shown stands.
unsigned int unexplainedBits(const StatusReport& report)
{
    const bool isSpecific = report.chip->device.at(StatusMfrSpecific::CODE) != 0
                            || anyOf(report.supplies, [](const Rail& rail) {
                                   return rail.value(StatusMfrSpecific::CODE) != 0;
                               });
    const auto isLatched = [](const Rail& rail) { return knownBits(rail) != 0; };
    const bool isOvervoltage =
        anyOf(report.supplies, [](const Rail& rail) { return (rail.status() & 0x80) != 0; });
    const unsigned int explained =
        (anyOf(report.supplies, isLatched) ? VOUT : 0) | (isSpecific ? MFR_SPECIFIC : 0)
        | (isOvervoltage ? OVERVOLTAGE : 0) | (anyOf(report.sensors, isLatched) ? TEMPERATURE : 0)
        | (report.chip->device.at(StatusCML::CODE) != 0 ? CML : 0);
    return report.chip->statusWord() & ~explained;
}

/// "fault: channel 3 CORE_2V5: overvoltage fault (...), and 2 more complaints": the first of the
/// worst ones.
std::string worstComplaint(const StatusReport& report)
{
    const State worst = report.state();
    std::string text;
    std::size_t others = 0;
    for (const auto* list : {&report.supplies, &report.sensors}) {
        for (const RailReport& rail : *list) {
            for (const RailComplaint& complaint : rail.complaints) {
                if (text.empty() && complaint.state == worst) {
                    text = stateName(worst) + (": " + pageName(rail.rail->page)) + ": "
                           + complaint.text;
                } else {
                    ++others;
                }
            }
        }
    }
    return text
           + (others == 0 ? "" : ", and " + counted(others, "more complaint", "more complaints"));
}

} // namespace

State StatusReport::state() const
{
    if (forecast) {
        return forecast->worst();
    }
    State worst = State::GOOD;
    for (const auto* list : {&supplies, &sensors}) {
        for (const RailReport& rail : *list) {
            worst = std::max(worst, rail.state());
        }
    }
    return worst;
}

std::string StatusReport::describe(const Crossing& crossing) const
{
    const catalogue::Row& limit = *catalogue::find(crossing.limit);
    const std::string subject = pageName(crossing.page) + ": ";
    if (crossing.limit == VoutScaleMonitor::CODE) {
        return subject + "a VOUT_SCALE_MONITOR of " + registerText(crossing.limit, crossing.value)
               + " can't be simulated";
    }
    return subject + registerText(crossing.limit, crossing.value)
           + (crossing.value > crossing.bound ? " is above " : " is below ") + limit.name.text + " "
           + registerText(crossing.limit, crossing.bound);
}

std::string StatusReport::summary() const
{
    if (forecast) {
        return forecastSummary();
    }
    if (supplies.empty() && sensors.empty()) {
        return "no supply or sensor is set up in the chip (--all shows all)";
    }
    const std::string what = counted(supplies.size(), "supply", "supplies") + " and "
                             + counted(sensors.size(), "sensor", "sensors") + ": ";
    if (state() != State::GOOD) {
        return what + worstComplaint(*this);
    }
    const unsigned int unexplained = unexplainedBits(*this);
    return what
           + (unexplained == 0
                  ? "all good"
                  : "good, but STATUS_WORD says: " + joined(statusWordNames(unexplained)));
}

std::string StatusReport::forecastSummary() const
{
    std::string what;
    for (const std::string& file : files) {
        what += (what.empty() ? "with " : ", then ") + file;
    }
    what += ": ";
    const State worst = state();
    if (worst == State::GOOD) {
        return what + "all good";
    }
    std::vector<std::string> found;
    for (const auto* list : {&forecast->atEnd, &forecast->whileWritten, &forecast->sincePeaks}) {
        for (const Crossing& crossing : *list) {
            if (crossing.state == worst) {
                found.push_back(describe(crossing));
            }
        }
    }
    for (const Remark& remark : forecast->remarks) {
        if (remark.state == worst) {
            found.push_back(remark.text);
        }
    }
    return what + stateName(worst) + ": " + found.front()
           + (found.size() == 1 ? "" : ", and " + std::to_string(found.size() - 1) + " more");
}

StatusReport makeReport(const ChipState& chip, bool all)
{
    StatusReport report{&chip, {}, {}, {}, std::nullopt};
    for (const Rail& rail : chip.rails) {
        if (all || isShown(rail)) {
            auto& list = rail.isChannel() ? report.supplies : report.sensors;
            list.push_back({&rail, judge(rail)});
        }
    }
    return report;
}

std::string latchedText(const ChipState& chip)
{
    std::string text;
    const auto add = [&](const std::string& where, const std::vector<std::string>& bits) {
        text += bits.empty() ? "" : (text.empty() ? "" : "; ") + where + ": " + joined(bits);
    };
    for (const Rail& rail : chip.rails) {
        add(pageName(rail.page), latchedNames(rail));
    }
    add("STATUS_WORD", statusWordNames(chip.statusWord()));
    add("STATUS_CML", statusCmlNames(static_cast<unsigned int>(chip.device.at(StatusCML::CODE))));
    return text;
}

std::vector<std::string> statusWordNames(unsigned int word)
{
    return namesOf(word, STATUS_WORD_BITS);
}

std::vector<std::string> statusCmlNames(unsigned int byte)
{
    return namesOf(byte, STATUS_CML_BITS);
}
