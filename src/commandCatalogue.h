// The catalogue: the PMBus commands of the MAX34460 that the system knows, one
// row each. command.h makes the command classes from it, command.cpp the lookup
// of Command::create. To add a register, add its row.
#pragma once

#include <cstdint>

/// The two operations on a register; bits of an access mask.
inline constexpr std::uint32_t ACCESS_READ = 1;
inline constexpr std::uint32_t ACCESS_WRITE = 2;

/// The access masks that a group of pages can have for a command.
namespace rights {
inline constexpr std::uint32_t NO = 0;
inline constexpr std::uint32_t RO = ACCESS_READ;
inline constexpr std::uint32_t WO = ACCESS_WRITE;
inline constexpr std::uint32_t RW = ACCESS_READ | ACCESS_WRITE;
} // namespace rights

// Codes 0x00 to 0x9E and their names are the PMBus standard's, 0xD1 to 0xFD the
// manufacturer's (MAX34460 data sheet). The caller names a macro for each data
// size: NONE(code, class, channels, temperatures, device), BYTE and WORD alike,
// BLOCK with the number of bytes after the class. PAGE is a byte command that
// is written in a way of its own.
//
// clang-format off
//        code  class              bytes    pages 0-11  13-17  255
#define COMMAND_CATALOGUE(PAGE, NONE, BYTE, WORD, BLOCK)                       \
    PAGE (0x00, Page,                               RW,   RW,   RW)            \
    BYTE (0x01, Operation,                          RW,   NO,   WO)            \
    BYTE (0x02, OnOffConfig,                        RW,   RW,   RW)            \
    NONE (0x03, ClearFaults,                        WO,   WO,   WO)            \
    BYTE (0x10, WriteProtect,                       RW,   RW,   RW)            \
    NONE (0x11, StoreDefaultAll,                    WO,   WO,   WO)            \
    NONE (0x12, RestoreDefaultAll,                  WO,   WO,   WO)            \
    BYTE (0x19, Capability,                         RO,   RO,   RO)            \
    BYTE (0x20, VoutMode,                           RO,   RO,   RO)            \
    WORD (0x25, VoutMarginHigh,                     RW,   NO,   NO)            \
    WORD (0x26, VoutMarginLow,                      RW,   NO,   NO)            \
    WORD (0x2A, VoutScaleMonitor,                   RW,   NO,   NO)            \
    WORD (0x40, VoutOVFaultLimit,                   RW,   NO,   NO)            \
    WORD (0x42, VoutOVWarnLimit,                    RW,   NO,   NO)            \
    WORD (0x43, VoutUVWarnLimit,                    RW,   NO,   NO)            \
    WORD (0x44, VoutUVFaultLimit,                   RW,   NO,   NO)            \
    WORD (0x4F, OTFaultLimit,                       NO,   RW,   NO)            \
    WORD (0x51, OTWarnLimit,                        NO,   RW,   NO)            \
    WORD (0x5E, PowerGoodOn,                        RW,   NO,   NO)            \
    WORD (0x5F, PowerGoodOff,                       RW,   NO,   NO)            \
    WORD (0x60, TonDelay,                           RW,   NO,   NO)            \
    WORD (0x62, TonMaxFaultLimit,                   RW,   NO,   NO)            \
    WORD (0x64, ToffDelay,                          RW,   NO,   NO)            \
    WORD (0x79, StatusWord,                         RO,   RO,   RO)            \
    BYTE (0x7A, StatusVout,                         RO,   NO,   NO)            \
    BYTE (0x7D, StatusTemperature,                  NO,   RO,   NO)            \
    BYTE (0x7E, StatusCML,                          RO,   RO,   RO)            \
    BYTE (0x80, StatusMfrSpecific,                  RO,   NO,   RO)            \
    WORD (0x8B, ReadVout,                           RO,   NO,   NO)            \
    WORD (0x8D, ReadTemperature,                    NO,   RO,   NO)            \
    BYTE (0x98, PmbusRevision,                      RO,   RO,   RO)            \
    BYTE (0x99, MfrId,                              RO,   RO,   RO)            \
    BYTE (0x9A, MfrModel,                           RO,   RO,   RO)            \
    WORD (0x9B, MfrRevision,                        RO,   RO,   RO)            \
    BLOCK(0x9C, MfrLocation,            8,          RW,   RW,   RW)            \
    BLOCK(0x9D, MfrDate,                8,          RW,   RW,   RW)            \
    BLOCK(0x9E, MfrSerial,              8,          RW,   RW,   RW)            \
    WORD (0xD1, MfrMode,                            RW,   RW,   RW)            \
    BYTE (0xD2, MfrPsenConfig,                      RW,   NO,   NO)            \
    BYTE (0xD3, MfrSeqTimeslot,                     RW,   NO,   NO)            \
    WORD (0xD4, MfrVoutPeak,                        RW,   NO,   NO)            \
    WORD (0xD6, MfrTemperaturePeak,                 NO,   RW,   NO)            \
    WORD (0xD7, MfrVoutMin,                         RW,   NO,   NO)            \
    WORD (0xD8, MfrNvLogConfig,                     RW,   RW,   RW)            \
    WORD (0xD9, MfrFaultResponse,                   RW,   NO,   NO)            \
    WORD (0xDA, MfrFaultRetry,                      RW,   RW,   RW)            \
    WORD (0xDB, MfrPGDelay,                         RW,   RW,   RW)            \
    BLOCK(0xDC, MfrNvFaultLog,        255,          RO,   RO,   RO)            \
    BLOCK(0xDD, MfrTimeCount,           4,          RW,   RW,   RW)            \
    WORD (0xDF, MfrMarginConfig,                    RW,   NO,   NO)            \
    WORD (0xE0, MfrFwSerial,                        NO,   NO,   RO)            \
    WORD (0xE3, MfrTemperatureAvg,                  NO,   RW,   NO)            \
    WORD (0xEA, MfrChannelNominal,                  RW,   NO,   NO)            \
    WORD (0xF0, MfrTempSensorConfig,                NO,   RW,   NO)            \
    WORD (0xFB, MfrGpoConfig,                       RW,   RW,   RW)            \
    WORD (0xFC, MfrStoreSingle,                     RW,   RW,   RW)            \
    WORD (0xFD, MfrWatchdogConfig,                  RW,   RW,   RW)
// clang-format on
