// What a run tells: on standard output while it goes on, and in its report.
#pragma once

#include <string>

#include "program.h"

/// What is shown of what a program wrote, unless it is JSON for us.
enum class Shows { ERRORS, ALL };

class RunReport {
public:
    /// Runs a program as a step of the run: its line says what it is for and how it can be typed,
    /// then how it ended; what the program wrote follows where it matters.
    Ended step(const std::string& title, const Words& command, Shows shows = Shows::ERRORS);

    /// Tells a line. Output that can't be written changes nothing about what is done.
    void tell(const std::string& line);

    const std::string& text() const { return m_text; }

private:
    std::string m_text;
};
