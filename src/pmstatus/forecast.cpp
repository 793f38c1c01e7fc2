#include "forecast.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "commandCatalogue.h"
#include "values.h"

using catalogue::Format;
using catalogue::Kind;

namespace {

/// Whether writing another value may switch supplies on or off at once.
bool maySwitch(std::uint8_t code)
{
    return code == OnOffConfig::CODE || code == Operation::CODE || code == MfrMode::CODE
           || code == MfrPsenConfig::CODE;
}

/// Whether the number in the register is known or followed: what is longer is no bit field, limit
/// or ratio.
bool isNumber(const Entry& entry)
{
    return entry.isValue() && entry.row->size <= WordCommand::SIZE;
}

/// A channel or sensor while a file is written.
struct Course {
    Rail now;
    Rail before;     ///< as it was read
    bool runs;       ///< a supply, when it was read
    bool isFollowed; ///< false from a ratio on by which nothing can be divided
    std::map<std::uint8_t, Crossing> crossings; ///< since the file's begin, by limit
};

/// A measured number as it reads with another ratio of VOUT_SCALE_MONITOR.
int rescaled(int number, int from, int to)
{
    const double exact = static_cast<double>(number) * from / to;
    return static_cast<int>(std::clamp(std::round(exact), -32768.0, 32767.0));
}

class Writing {
public:
    Writing(const ChipState& chip, Forecast& result);

    void write(const PmFile& file);

    /// Of the supplies with undervoltage limits, how many don't run.
    int countIdle() const;

private:
    const char* findRefusal(const Entry& entry) const;
    void set(const Entry& entry);
    void setDevice(const Entry& entry, int number);
    void setRail(Course& course, const Entry& entry, int number);
    void follow(Course& course);
    void checkRatio(Course& course);
    void judge(Course& course, const Entry& entry);
    void finish();
    void judgePeak(const Course& course, std::optional<int> seen, bool isUpper);
    bool isJudged(const Course& course, const Limit& limit) const;
    bool isCrossed(const Course& course, const Limit& limit) const;
    void remarkChange(const Entry& entry, int page, int from, int to);
    Course* findCourse(int page);

    Forecast& m_result;
    std::vector<Course> m_courses;
    std::map<std::uint8_t, int> m_device;
    int m_file = 0;
    int m_rightsPage = 0; ///< by which pmadmin judges what may be written
    int m_chipPage = 0;   ///< that is selected in the chip
};

Writing::Writing(const ChipState& chip, Forecast& result) : m_result(result), m_device(chip.device)
{
    for (const Rail& rail : chip.rails) {
        Course course{rail, rail, rail.isChannel() && rail.isRunning(), true, {}};
        m_courses.push_back(course);
    }
}

Course* Writing::findCourse(int page)
{
    const auto found = std::ranges::find_if(
        m_courses, [&](const Course& course) { return course.now.page == page; });
    return found == m_courses.end() ? nullptr : &*found;
}

// What keeps the entry from acting, in words; null: nothing.
const char* Writing::findRefusal(const Entry& entry) const
{
    if (!catalogue::isPage(m_rightsPage)) {
        return "the chip does not have the page, and pmadmin refuses to write it";
    }
    if ((accessOn(*entry.row, m_rightsPage) & ACCESS_WRITE) == 0) {
        return "pmadmin refuses to write it on this page";
    }
    const auto level = static_cast<std::uint8_t>(m_device.at(WriteProtect::CODE));
    if (catalogue::isProtected(entry.row->code, level)) {
        return "the chip is write-protected";
    }
    return (accessOn(*entry.row, m_chipPage) & ACCESS_WRITE) != 0
               ? nullptr
               : "the chip refuses it on the page that is selected then";
}

// A new run of pmadmin selects page 255, and takes page 0's rights for what stands before the first
// PAGE entry.
void Writing::write(const PmFile& file)
{
    ++m_file;
    m_rightsPage = 0;
    m_chipPage = Command::ALL_PAGES;
    for (Course& course : m_courses) {
        course.crossings.clear();
        checkRatio(course);
    }
    std::map<std::string, std::pair<unsigned int, int>> passedOver; // reason: first line, number
    for (const Entry& entry : file.entries) {
        if (entry.row == nullptr || entry.row->kind == Kind::ACTION) {
            continue; // pmadmin does not write it
        }
        if (entry.selectsPage()) {
            m_rightsPage = entry.data[0];
        }
        if (const char* const reason = findRefusal(entry)) {
            ++passedOver.try_emplace(reason, entry.line, 0).first->second.second;
        } else if (entry.selectsPage()) {
            m_chipPage = m_rightsPage;
        } else if (isNumber(entry)) {
            set(entry);
        }
    }
    for (const auto& [reason, where] : passedOver) {
        const auto [line, count] = where;
        m_result.remarks.push_back({m_file, line, State::GOOD,
                                    std::to_string(count)
                                        + (count == 1 ? " entry is" : " entries are")
                                        + " passed over, the first of them here: " + reason});
    }
    finish();
}

// Before the first PAGE entry, and on page 255, a register of the whole device is meant: of
// OPERATION that is every channel's.
void Writing::set(const Entry& entry)
{
    const int number = numberOf(*entry.row, entry.value());
    if (entry.code == Operation::CODE && m_chipPage == Command::ALL_PAGES) {
        for (Course& course : m_courses) {
            if (course.now.isChannel()) {
                setRail(course, entry, number);
            }
        }
    } else if (entry.row->deviceAccess != Command::NO && entry.code != Operation::CODE) {
        setDevice(entry, number);
    } else if (Course* const course = findCourse(m_chipPage)) {
        setRail(*course, entry, number);
    }
}

void Writing::setDevice(const Entry& entry, int number)
{
    const auto known = m_device.find(entry.row->code);
    if (known != m_device.end() && known->second != number) {
        remarkChange(entry, Command::ALL_PAGES, known->second, number);
    }
    m_device[entry.row->code] = number;
}

void Writing::setRail(Course& course, const Entry& entry, int number)
{
    const auto known = course.now.registers.find(entry.row->code);
    if (known != course.now.registers.end() && known->second != number) {
        remarkChange(entry, course.now.page, known->second, number);
    }
    course.now.registers[entry.row->code] = number;
    follow(course);
    judge(course, entry);
}

// The reading is what stands at the pin over the ratio: with another ratio it is another at once.
void Writing::follow(Course& course)
{
    if (!course.now.isChannel()) {
        return;
    }
    checkRatio(course);
    if (course.isFollowed) {
        course.now.readings = {rescaled(course.before.reading(),
                                        course.before.value(VoutScaleMonitor::CODE),
                                        course.now.value(VoutScaleMonitor::CODE))};
    }
}

void Writing::checkRatio(Course& course)
{
    if (!course.isFollowed || !course.now.isChannel()) {
        return;
    }
    const int ratio = course.now.value(VoutScaleMonitor::CODE);
    course.isFollowed = ratio > 0;
    if (!course.isFollowed) {
        m_result.atEnd.push_back(
            {m_file, course.now.page, VoutScaleMonitor::CODE, ratio, 0, State::FAULT});
    }
}

void Writing::remarkChange(const Entry& entry, int page, int from, int to)
{
    if (entry.row->format != Format::BITS || entry.code == WriteProtect::CODE) {
        return;
    }
    const bool switches = maySwitch(entry.row->code);
    m_result.remarks.push_back({m_file, entry.line, switches ? State::WARNING : State::GOOD,
                                commandName(entry) + " of " + pageName(page) + " changes from "
                                    + registerText(entry.row->code, from) + " to "
                                    + registerText(entry.row->code, to)
                                    + (switches ? " and may switch supplies at once"
                                                : "; what that does is not simulated")});
}

// Whether the limit counts: the ratio is known and, if it is an undervoltage limit, the supply
// runs.
bool Writing::isJudged(const Course& course, const Limit& limit) const
{
    return course.isFollowed && (limit.isUpper || (course.runs && !course.now.isExpectedOff));
}

// Whether what is measured now is beyond the limit: of a sensor, if it is a temperature.
bool Writing::isCrossed(const Course& course, const Limit& limit) const
{
    const Rail& rail = course.now;
    return isJudged(course, limit) && (rail.isChannel() || isTemperature(rail.reading()))
           && isBeyond(rail, limit, rail.reading());
}

void Writing::judge(Course& course, const Entry& entry)
{
    for (const Limit& limit : limitsOf(course.now)) {
        if (!isCrossed(course, limit)) {
            continue;
        }
        const Crossing crossing{m_file,
                                course.now.page,
                                limit.code,
                                course.now.reading(),
                                course.now.value(limit.code),
                                limit.state,
                                entry.index,
                                entry.index,
                                entry.line,
                                entry.line};
        const auto [known, isNew] = course.crossings.try_emplace(limit.code, crossing);
        known->second.lastIndex = entry.index;
        known->second.lastLine = entry.line;
    }
}

void Writing::finish()
{
    for (Course& course : m_courses) {
        const Rail& rail = course.now;
        for (const Limit& limit : limitsOf(rail)) {
            if (isCrossed(course, limit)) {
                m_result.atEnd.push_back({m_file, rail.page, limit.code, rail.reading(),
                                          rail.value(limit.code), limit.state});
                course.crossings.erase(limit.code);
            }
        }
        for (const auto& [code, crossing] : course.crossings) {
            m_result.whileWritten.push_back(crossing);
        }
        if (rail.isChannel()) {
            judgePeak(course, course.before.lowest(), false);
        }
        judgePeak(course, course.before.highest(), true);
    }
}

int Writing::countIdle() const
{
    const auto isIdle = [](const Course& course) {
        return course.now.isChannel() && !course.runs
               && std::ranges::any_of(limitsOf(course.now), [&](const Limit& limit) {
                      return !limit.isUpper && isSet(course.now, limit);
                  });
    };
    return static_cast<int>(std::ranges::count_if(m_courses, isIdle));
}

void Writing::judgePeak(const Course& course, std::optional<int> seen, bool isUpper)
{
    if (!seen || !course.isFollowed) {
        return;
    }
    const bool isChannel = course.now.isChannel();
    const int then = isChannel ? rescaled(*seen, course.before.value(VoutScaleMonitor::CODE),
                                          course.now.value(VoutScaleMonitor::CODE))
                               : *seen;
    for (const Limit& limit : limitsOf(course.now)) {
        if (limit.isUpper == isUpper && isJudged(course, limit) && isBeyond(course.now, limit, then)
            && !isBeyond(course.before, limit, *seen)) {
            m_result.sincePeaks.push_back({m_file, course.now.page, limit.code, then,
                                           course.now.value(limit.code), State::WARNING});
        }
    }
}

} // namespace

State Forecast::worst() const
{
    State worst = State::GOOD;
    for (const auto* list : {&atEnd, &whileWritten, &sincePeaks}) {
        for (const Crossing& crossing : *list) {
            worst = std::max(worst, crossing.state);
        }
    }
    for (const Remark& remark : remarks) {
        worst = std::max(worst, remark.state);
    }
    return worst;
}

std::map<int, std::set<std::uint8_t>> registersFor(const PmFile& file)
{
    std::map<int, std::set<std::uint8_t>> registers;
    for (const Entry& entry : file.entries) {
        if (entry.row == nullptr || entry.selectsPage() || !isNumber(entry)
            || entry.row->format != Format::BITS) {
            continue;
        }
        const bool isEveryChannels = entry.code == Operation::CODE;
        for (int page = 0; page <= Command::ALL_PAGES; ++page) {
            const bool isMeant =
                isEveryChannels ? catalogue::isPage(page) : page == registerPage(entry);
            if (isMeant && catalogue::isPage(page)
                && (accessOn(*entry.row, page) & ACCESS_READ) != 0) {
                registers[page].insert(entry.row->code);
            }
        }
    }
    return registers;
}

Forecast forecast(const ChipState& chip, const std::vector<std::unique_ptr<PmFile>>& files)
{
    Forecast result;
    Writing writing(chip, result);
    for (const auto& file : files) {
        writing.write(*file);
    }
    result.idle = writing.countIdle();
    return result;
}
