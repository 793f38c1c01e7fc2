// virtual-board: runs a command with a virtual board in place of the real one. Prepares the board
// and the session, hides the machine's own buses, runs the command, and reports.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "board.h"
#include "boardUse.h"
#include "isolation.h"
#include "options.h"
#include "runCommand.h"
#include "session.h"

namespace {

using namespace virtualboard;

void copyPath(char (&to)[PATH_MAX], const std::string& path)
{
    if (path.empty() || path.size() >= PATH_MAX) {
        giveUp(path.empty() ? "the name of a file is empty"
                            : "this file name is too long: " + path);
    }
    std::memcpy(to, path.c_str(), path.size() + 1);
}

std::string absolutePath(const std::string& path)
{
    std::error_code error;
    const auto absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.string();
}

// A log must be writable before anything runs, and not be the board; "-" is standard error.
void takeLog(char (&to)[PATH_MAX], const std::optional<std::string>& path, int board)
{
    if (!path) {
        return;
    }
    copyPath(to, *path == "-" || path->empty() ? *path : absolutePath(*path));
    if (*path == "-") {
        return;
    }
    const int fd = open(to, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        giveUp("cannot write " + *path + ": " + std::strerror(errno));
    }
    struct stat log = {};
    struct stat memory = {};
    if (fstat(fd, &log) == 0 && fstat(board, &memory) == 0 && log.st_dev == memory.st_dev
        && log.st_ino == memory.st_ino) {
        giveUp(*path + " is the board, and can't be a log as well");
    }
    close(fd);
}

void readyBoard(const Options& options)
{
    BoardAccess board(options.session.board);
    if (!board.isOpen()) {
        giveUp(board.error());
    }
    if (options.powerCycle) {
        board.powerUp();
    }
    if (options.setHardwareVersion) {
        board.setHardwareVersion(options.hardwareVersion.has_value(),
                                 options.hardwareVersion.value_or(0));
    }
    if (options.model) {
        *bytesOf(board.chip().ram, MfrModel::CODE, Command::ALL_PAGES) =
            static_cast<std::uint8_t>(*options.model);
    }
    std::string error;
    for (const InputOption& input : options.inputs) {
        if (!apply(input, board.supplies(), board.chip().ram, error)) {
            giveUp(error);
        }
    }
    if (!board.save()) {
        giveUp(board.error());
    }
}

void printSummary(const Session& session)
{
    constexpr std::uint64_t BITS_PER_MS = 100; // at 100 kHz
    std::fprintf(stderr,
                 "virtual-board: %" PRIu64 " transfers, %" PRIu64 " failures, %" PRIu64
                 " bytes, %" PRIu64 ".%02" PRIu64 " ms on a 100 kHz bus\n",
                 session.transfers, session.failures, session.bytes, session.bits / BITS_PER_MS,
                 session.bits % BITS_PER_MS);
}

// A message about what was written to the bus without a request; empty if nothing was.
std::string findStrayBytes(const std::filesystem::path& folder)
{
    constexpr int SHOWN = 16;
    std::int64_t count = 0;
    std::string first;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const auto size = static_cast<std::int64_t>(entry.file_size(error));
        if (entry.path().filename().string().rfind(BUS_FILE_PREFIX, 0) != 0 || size <= 0) {
            continue;
        }
        const std::int64_t begin = (size - 1) / BUS_FILE_STRIDE * BUS_FILE_STRIDE;
        count += size - begin;
        std::ifstream file(entry.path(), std::ios::binary);
        file.seekg(begin);
        for (int i = 0; i < SHOWN && file.peek() != EOF; ++i) {
            char text[4];
            std::snprintf(text, sizeof(text), " %02X", static_cast<unsigned int>(file.get()));
            first += text;
        }
    }
    return count == 0 ? ""
                      : std::to_string(count) + (count == 1 ? " byte" : " bytes")
                            + " without a request:" + first;
}

// Reports what an operator must know about the rehearsal.
void report(const Options& options, const Session& session)
{
    for (std::size_t i = 0; i < options.rules.size(); ++i) {
        if (!session.faults[i].struck) {
            std::fprintf(stderr, "virtual-board: the fault '%s' never occurred\n",
                         options.rules[i].c_str());
        }
    }
    if (const std::string stray = findStrayBytes(session.folder); !stray.empty()) {
        std::fprintf(stderr, "virtual-board: the bus received %s\n", stray.c_str());
        if (session.busLog[0] != '\0') {
            appendLine(session, session.busLog, "! " + stray);
        }
    }
    if (options.summary) {
        printSummary(session);
    }
}

// Runs the command on the prepared board, and returns its status.
int runOnBoard(const Options& options, std::string libraries, char** command)
{
    std::string error;
    const Session* session = hideBuses(error) ? shareSession(options.session, error) : nullptr;
    if (session == nullptr) {
        giveUp(error);
    }
    const std::string folder = session->folder;
    std::error_code ignored;
    if (!makeLoadable(libraries, folder, error)) {
        std::filesystem::remove_all(folder, ignored);
        giveUp(error);
    }
    const int status = runCommand(command, libraries, session->folder);
    // Who kills the whole run begins with the command, and has its turn until all are gone.
    const FileLock turn = takeTurn(*session);
    report(options, *session);
    std::filesystem::remove_all(folder, ignored);
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    Options options = parseOptions(argc, argv);
    std::string error;
    std::string libraries;
    if (!findLibraries(libraries, error)) {
        giveUp(error);
    }
    copyPath(options.session.board, options.board.empty() ? "" : absolutePath(options.board));
    if (options.remove) {
        if (!removeBoard(options.session.board, error)) {
            giveUp(error);
        }
        return EXIT_SUCCESS;
    }
    const int board = useBoard(options.session.board, error); // as long as this process lives
    if (board < 0) {
        giveUp(error);
    }
    options.session.launcher = getpid();
    takeLog(options.session.log, options.log, board);
    takeLog(options.session.busLog, options.busLog, board);
    readyBoard(options);
    return optind < argc ? runOnBoard(options, libraries, argv + optind) : EXIT_SUCCESS;
}
