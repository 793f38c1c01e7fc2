// Which settings each page has, what a file sets of them, and which pages it leaves unused. check
// judges files by this, and show says it.
#pragma once

#include <map>
#include <vector>

#include "pmFile.h"

/// Whether pmadmin writes the entry where it stands: the register can be written there. What stands
/// before the first PAGE is written by the rights of page 0. Never of an action.
bool isWritten(const Entry& entry);

/// Whether it is also read back there: what stands before the first PAGE is compared by the rights
/// of page 255.
bool isAccessible(const Entry& entry);

/// The settings that a page has of its own, in the order of the codes. Those common to the device
/// belong to page 255 alone, identity and version record to none.
std::vector<const catalogue::Row*> settingsOf(int page);

/// What a file sets of one page: by its code the last entry of each register.
using PageSettings = std::map<unsigned int, const Entry*>;

/// By page, what a file sets of the settings that the page has. The file has to be whole.
std::map<int, PageSettings> findSettings(const PmFile& file);

/// Whether a channel or sensor is unused: all of its settings are there and as from the factory.
/// The nominal voltage may be missing, as a model of the chip does not give it back.
bool isUnused(int page, const PageSettings& settings);
