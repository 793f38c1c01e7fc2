#include "PowerFileHandler.h"

#include <cstdio>

#include "boardUtils.h"
#include "log.h"
#include "pmMutexLock.h"
#include "versionRecord.h"

namespace {

constexpr int BUS = 0;

/// How often a register is read until it is equal to the file.
constexpr int COMPARE_ATTEMPTS = 2;

/// The page of the commands before a file's first PAGE entry. They are compared with the access
/// rights of the whole device, which the start has selected, but written with those of a channel.
constexpr std::uint8_t FIRST_COMPARE_PAGE = Command::ALL_PAGES;
constexpr std::uint8_t FIRST_WRITE_PAGE = 0;

std::uint8_t pageOf(const Command& pageCommand)
{
    return static_cast<const ByteCommand&>(pageCommand).getByte();
}

} // namespace

PowerFileHandler::PowerFileHandler() : Max34460("PowerFileHandler", BUS, Command::CHIP_ADDRESS)
{
    const PmMutexLock lock("PowerFileHandler::PowerFileHandler");
}

PowerFileHandler::~PowerFileHandler()
{
    clear(m_fileCommands);
    clear(m_targetCommands);
}

void PowerFileHandler::clear(std::vector<Command*>& list)
{
    LOG(DEBUG, "");
    for (const Command* command : list) {
        delete command;
    }
    list.clear();
}

bool PowerFileHandler::printInstalledVersion()
{
    std::printf("Get installed Power monitor version\nEEPROM version is v%d.%d\n",
                majorVersion(m_mfrDate), minorVersion(m_mfrDate));
    return true;
}

bool PowerFileHandler::isAccessible()
{
    const bool accessible = isHwOk();
    LOG(INFO, "Power monitor%s accessible", accessible ? "" : " not");
    return accessible;
}

bool PowerFileHandler::compareHwVersions()
{
    boardUtils board;
    int boardVersion = 0;
    const bool known = board.getVersion(boardVersion) != 0;
    const int minimum = minimumHwVersion(m_fileMfrDate);
    if (known && minimum <= boardVersion) {
        std::printf("Minimum HW version is OK to upgrade powermonitor.\n");
        LOG(INFO, "HW version %d >= minimum HW version %d", boardVersion, minimum);
        return true;
    }
    std::fprintf(stderr, "Minimum required HW version for updates is %d(hwver=%d))\n", minimum,
                 boardVersion);
    LOG(WARNING, "HW version %d incompatible with minimum HW version %d of the power file",
        boardVersion, minimum);
    return false;
}

bool PowerFileHandler::comparePowerFileVersions()
{
    const int fileMajor = majorVersion(m_fileMfrDate);
    const int fileMinor = minorVersion(m_fileMfrDate);
    const int installedMajor = majorVersion(m_mfrDate);
    const int installedMinor = minorVersion(m_mfrDate);
    if (fileMajor == installedMajor && fileMinor == installedMinor) {
        LOG(INFO, "Versions equal: version %d.%d", fileMajor, fileMinor);
        return true;
    }
    LOG(WARNING, "Versions differ : file version %d.%d <-> Target version %d.%d", fileMajor,
        fileMinor, installedMajor, installedMinor);
    return false;
}

bool PowerFileHandler::isSkippedCommand(const Command* command) const
{
    const std::uint8_t code = command->getCode();
    return code == ClearFaults::CODE || code == StoreDefaultAll::CODE
           || code == RestoreDefaultAll::CODE;
}

bool PowerFileHandler::isComparable(const Command* command) const
{
    const std::uint8_t code = command->getCode();
    return (code != MfrFwSerial::CODE && code != MfrChannelNominal::CODE)
           || m_mfrModel.getByte() != MODEL_WITHOUT_NOMINAL;
}

bool PowerFileHandler::compare()
{
    const PmMutexLock lock("PowerFileHandler::compare");
    if (m_targetCommands.size() != m_fileCommands.size() || m_fileCommands.empty()) {
        LOG(WARNING, "Target commands and file commands sizes are different or 0");
        return false;
    }
    printInstalledVersion();
    std::printf("New version is v%d.%d\n", majorVersion(m_fileMfrDate),
                minorVersion(m_fileMfrDate));

    const bool equal = compareCommands();
    LOG(INFO, "Power monitor file contents %s MAX34460 contents",
        equal ? "is equal to" : "differs from");
    std::printf("RAM registers are %sup-to-date.\n", equal ? "" : "NOT ");
    std::printf("EEPROM registers are %sup-to-date.\n", equal ? "" : "NOT ");
    return equal;
}

// The walk of compare over the two lists, in whose name it logs.
bool PowerFileHandler::compareCommands()
{
    std::uint8_t page = FIRST_COMPARE_PAGE;
    for (std::size_t i = 0; i < m_targetCommands.size(); ++i) {
        Command& target = *m_targetCommands[i];
        const Command& file = *m_fileCommands[i];
        if (target.getCode() == Page::CODE) {
            page = pageOf(target);
            // A failure is logged. The registers after it are then read from the previous page,
            // and differ unless that page holds the same values.
            target.write(m_fd, page);
            LOG_AS("compare", DEBUG, "Write page %d", page);
            continue;
        }
        if (isSkippedCommand(&target) || !isComparable(&target)) {
            continue;
        }
        const int index = static_cast<int>(i);
        if (!compareCommand(target, file, index, page)) {
            LOG_AS("compare", ERROR, "Data of command %02x differs (command index in file = %d)",
                   file.getCode(), index);
            return false;
        }
    }
    return true;
}

// One register's part of compare, in whose name it logs.
bool PowerFileHandler::compareCommand(Command& target, const Command& file, int index,
                                      std::uint8_t page)
{
    for (int attempt = COMPARE_ATTEMPTS; attempt > 0; --attempt) {
        LOG_AS("compare", DEBUG, "Read command %02x (try %d times)", target.getCode(), attempt);
        if (!target.read(m_fd, page)) {
            LOG_AS("compare", ERROR, "Read/write failed for command %02x on page %d",
                   target.getCode(), page);
            continue;
        }
        if (target == file) {
            LOG_AS("compare", DEBUG, "Data of command %02x equal", target.getCode());
            return true;
        }
        LOG_AS("compare", INFO, "Data of command %02x differs (command index in file = %d)",
               file.getCode(), index);
        LOG_AS("compare", INFO, "Target data: %s", target.dataToString().c_str());
        LOG_AS("compare", INFO, "File data  : %s", file.dataToString().c_str());
    }
    return false;
}

bool PowerFileHandler::writeCommands()
{
    const PmMutexLock lock("PowerFileHandler::writeCommands");
    bool ok = true;
    std::uint8_t page = FIRST_WRITE_PAGE;
    for (Command* command : m_fileCommands) {
        if (command->getCode() == Page::CODE) {
            page = pageOf(*command);
        }
        if (isSkippedCommand(command)) {
            continue;
        }
        LOG(DEBUG1, "Write %02x to page %d", command->getCode(), page);
        ok = command->write(m_fd, page) && ok;
    }
    LOG(INFO, "Writing power monitor file: %s", ok ? "success" : "failed");
    return ok;
}

bool PowerFileHandler::save()
{
    const PmMutexLock lock("PowerFileHandler::save");
    StoreDefaultAll storeDefaultAll;
    const bool ok = storeDefaultAll.write(m_fd, 0); // the same on every page
    LOG(INFO, "Storing power monitor file to flash: %s", ok ? "success" : "failed");
    return ok;
}
