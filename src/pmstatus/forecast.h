// What would the chip report if it held a file, with the supplies as they are now? The entries are
// taken one after another as `pmadmin -r` writes them; nothing is written. pmstatus --with shows
// it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "chipState.h"
#include "pmFile.h"

/// A value beyond a limit, now or while a file is written.
struct Crossing {
    int file;           ///< 1 or 2, which of the files
    int page;           ///< of the channel or sensor
    std::uint8_t limit; ///< code of its register
    int value;          ///< mV or 0.01 °C, or the number of the ratio
    int bound;          ///< the number in the limit's register
    State state;
    int firstIndex = 0, lastIndex = 0; ///< of entries, as pmadmin counts; of what is `whileWritten`
    unsigned int firstLine = 0, lastLine = 0;
};

/// What is to be said besides, about a line of a file.
struct Remark {
    int file;
    unsigned int line;
    State state;
    std::string text;
};

struct Forecast {
    std::vector<Crossing> atEnd;        ///< stands beyond its limit when the file is written
    std::vector<Crossing> whileWritten; ///< and only until later entries are written
    std::vector<Crossing> sincePeaks;   ///< peaks that only the new limits would have noticed
    std::vector<Remark> remarks;
    int idle = 0; ///< supplies that don't run, and whose undervoltage limits are not judged

    State worst() const;
};

/// The registers, by page, whose present numbers a forecast of the file compares with.
std::map<int, std::set<std::uint8_t>> registersFor(const PmFile& file);

/// Forecasts one file after the other. `chip` holds the limits of every channel and sensor, and
/// what registersFor names for each of the files, as far as it can be read.
Forecast forecast(const ChipState& chip, const std::vector<std::unique_ptr<PmFile>>& files);
