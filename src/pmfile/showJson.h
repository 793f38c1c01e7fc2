// The JSON form of show, for programs.
#pragma once

#include "pmFile.h"

/// Prints the file as one JSON object, an entry a line.
void showJson(const PmFile& file);
