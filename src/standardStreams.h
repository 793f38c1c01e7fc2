// Guards the chip against what a program prints. Used first of all by every program that opens
// the bus.
#pragma once

/// Opens standard streams that the caller closed, on /dev/null. The bus would get the lowest free
/// descriptor, and what is printed would be written to the chip. False, with a message, if that
/// can't be kept from happening.
bool openStandardStreams();
