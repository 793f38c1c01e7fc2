// The power settings version record: the first data bytes of MFR_DATE, in the chip
// and in the PM data file. The device object and the handler read it.
#pragma once

#include "command.h"

inline int versionRecordByte(const MfrDate& record, int index)
{
    std::uint8_t bytes[BlockCommand::MAX_DATA_SIZE];
    record.getData(bytes);
    return bytes[index];
}

inline int minorVersion(const MfrDate& record)
{
    return versionRecordByte(record, 0);
}

inline int majorVersion(const MfrDate& record)
{
    return versionRecordByte(record, 1);
}

/// The least hardware version of a board that may receive the settings.
inline int minimumHwVersion(const MfrDate& record)
{
    return versionRecordByte(record, 2);
}
