// Keeps a program's output from being written to the chip. Every program that opens the bus calls
// it first.
#pragma once

/// Opens standard streams that the caller closed on /dev/null: otherwise the bus would get the
/// lowest free descriptor, and output would be written to the chip. False, with a message, if
/// /dev/null can't be opened.
bool openStandardStreams();
