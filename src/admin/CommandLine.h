// The command line of the tool: one action and, where it needs one, the path of the PM data file.
// main reads the result.
#pragma once

#include <string>

/// What a run does.
enum class Action {
    None, ///< no option selected an action
    Compare,
    Write,
    Save,
    HwVersionCheck,
    PrintVersion,
    AccessibilityCheck,
    Upgrade,
    FileVersionCheck, ///< no option selects it
};

/// Parses the arguments once, when it is constructed. For a wrong command line it prints a message
/// and the usage text, and is invalid.
class CommandLine {
public:
    CommandLine(int argc, char* const argv[]);

    bool isValid() const { return m_valid; }
    Action getAction() const { return m_action; }
    /// Path of the PM data file; empty if the action takes none.
    std::string getFileName() const { return m_fileName; }

    /// Writes the usage text to standard error.
    void printUsage() const;

protected:
    std::string m_programName;
    std::string m_fileName;
    Action m_action;
    bool m_valid;
    std::string m_options; ///< for getopt

private:
    bool parse(int argc, char* const argv[]);
    bool parseOptions(int argc, char* const argv[], bool& fileRequired);
};
