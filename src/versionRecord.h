// The power settings version record: the first data bytes of MFR_DATE, in the chip and in the PM
// data file. The device object and the handler read it.
#pragma once

#include <cstdint>

#include "command.h"

/// The record's data byte at `index`, 0 to 7.
inline int versionRecordByte(const MfrDate& record, int index)
{
    std::uint8_t bytes[BlockCommand::MAX_DATA_SIZE];
    record.getData(bytes);
    return bytes[index];
}

/// The version of the power settings is major.minor, each 0 to 255.
inline int minorVersion(const MfrDate& record)
{
    return versionRecordByte(record, 0);
}

inline int majorVersion(const MfrDate& record)
{
    return versionRecordByte(record, 1);
}

/// The minimum hardware version of a board that may receive the settings, 0 to 255.
inline int minimumHwVersion(const MfrDate& record)
{
    return versionRecordByte(record, 2);
}
