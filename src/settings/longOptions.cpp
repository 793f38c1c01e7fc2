#include "longOptions.h"

#include <getopt.h>

std::string refusedOption(const option* options, int given, const std::string& argument)
{
    if (given == ':') {
        return "option '" + argument + "' needs a value";
    }
    if (given != '?') {
        return "";
    }
    if (optopt >= FIRST_LONG_OPTION) {
        return std::string("option '--") + options[optopt - FIRST_LONG_OPTION].name
               + "' takes no value";
    }
    // A letter, or a long option that there is not, which is the argument before the next one.
    return "there is no option '"
           + (optopt == 0 ? argument : std::string{'-', static_cast<char>(optopt)}) + "'";
}
