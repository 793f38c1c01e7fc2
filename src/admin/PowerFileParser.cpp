#include "PowerFileParser.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

#include "log.h"
#include "pmDataFile.h"

using pmDataFile::Reading;

namespace {

/// Reads the file into `text`. Returns why it could not be read whole, or null. A file from which
/// nothing can be read, such as a folder, counts as empty.
const char* readFile(const std::string& fileName, std::string& text)
{
    const int fd = open(fileName.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    const Reading reading = pmDataFile::readAll(fd, text);
    close(fd);
    if (reading == Reading::TOO_LARGE) {
        text.clear();
        return "it is too large";
    }
    return reading == Reading::FAILED && !text.empty() ? "reading it failed on the way" : nullptr;
}

} // namespace

std::string PowerFileParser::parseFile(const std::string& fileName)
{
    std::string text;
    const char* const readFault = readFile(fileName, text);
    m_hexData.clear();
    m_hexData.reserve(text.size());
    m_error.clear();

    for (pmDataFile::Lines lines(text); lines.next();) {
        if (!lines.isRecord()) {
            continue;
        }
        const std::string line(lines.line());
        LOG(DEBUG3, "%s", line.c_str());
        m_hexData += parseLine(line);
        const char* const fault = pmDataFile::parseRecord(line).fault;
        if (fault != nullptr && m_error.empty()) {
            m_error = "line " + std::to_string(lines.number()) + " " + fault;
        }
    }
    if (readFault != nullptr && m_error.empty()) {
        m_error = readFault;
    }
    checkEntries(text);
    return m_hexData;
}

std::string PowerFileParser::parseLine(const std::string& line) const
{
    const pmDataFile::Record record = pmDataFile::parseRecord(line);
    std::string data(record.data);
    LOG(DEBUG, "%02x %04x %d %s %02x\n", record.byteCount, record.address, record.type != 0 ? 1 : 0,
        data.c_str(), record.checksum);
    return data;
}

unsigned int PowerFileParser::parseHex(const std::string& text, unsigned int position,
                                       unsigned int length) const
{
    return pmDataFile::parseHex(text, position, length);
}

MfrDate PowerFileParser::loadCommands(std::vector<Command*>& list) const
{
    MfrDate fileMfrDate;
    for (pmDataFile::Entries entries(m_hexData); entries.next();) {
        Command* command = Command::create(entries.code());
        if (command == nullptr) {
            LOG(ERROR, "Unknown command: %02x", entries.code());
            continue;
        }
        LOG(DEBUG2, "%s", command->toString().c_str());
        std::uint8_t bytes[pmDataFile::Entries::MAX_LENGTH];
        entries.copyData(bytes);
        command->setData(bytes);
        list.push_back(command);
        if (entries.code() == MfrDate::CODE) {
            fileMfrDate = static_cast<const MfrDate&>(*command);
        }
    }
    return fileMfrDate;
}

// Notes the first entry that is not whole, or too short for its command, unless there is an
// earlier fault.
void PowerFileParser::checkEntries(const std::string& text)
{
    for (pmDataFile::Entries entries(m_hexData); m_error.empty() && entries.next();) {
        const std::string fault = entries.findFault();
        if (!fault.empty()) {
            const unsigned int line = pmDataFile::findLine(text, entries.offset());
            m_error = "the entry at byte " + std::to_string(entries.offset()) + " in line "
                      + std::to_string(line) + " " + fault;
        }
    }
}
