// What show says about a file and its entries beside their values, in words or as JSON.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "pmFile.h"

/// Remarks on an entry beside its value, such as "identity".
std::vector<std::string> marksOf(const Entry& entry);

/// Numbers of a file, and the pages for which it has registers.
struct Summary {
    std::size_t written = 0;
    std::map<int, bool> unused; ///< by page: whether all its settings are those of the factory
};

Summary summarise(const PmFile& file);

bool isUnused(const Summary& summary, int page);

/// The last version record, nullptr if there is none.
const Entry* findVersion(const PmFile& file);
