#include "boardRun.h"

#include <sys/sem.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "board.h"
#include "pmMutexLock.h"

BoardRun::BoardRun()
{
    m_folder = testing::TempDir() + "board.XXXXXX";
    if (mkdtemp(m_folder.data()) == nullptr) {
        std::abort();
    }
    std::string error;
    EXPECT_TRUE(virtualboard::createBoard(path("board"), error)) << error;
    // By a link, as command lines split what stands in variables at blanks.
    std::filesystem::create_symlink(BUILD, path("build"));
    std::filesystem::create_symlink(EXAMPLES, path("examples"));
    const std::string build = EMULATOR " " + path("build");
    setenv("PMADMIN", (build + "/src/pmadmin").c_str(), 1);
    setenv("PMFILE", (build + "/src/pmfile").c_str(), 1);
    setenv("PMSTATUS", (build + "/src/pmstatus").c_str(), 1);
    setenv("PMUPGRADE", (build + "/src/pmupgrade").c_str(), 1);
    // pmupgrade finds the others in PATH, where an emulator has to be started for them.
    std::string programs = path("build/src");
    if (EMULATOR[0] != '\0') {
        programs = path("bin");
        std::filesystem::create_directory(programs);
        for (const std::string name : {"pmadmin", "pmfile", "pmstatus", "pmupgrade"}) {
            write("bin/" + name, "#!/bin/sh\nexec " + build + "/src/" + name + " \"$@\"\n");
            std::filesystem::permissions(programs + "/" + name, std::filesystem::perms::owner_all);
        }
    }
    static const std::string PATH = std::getenv("PATH");
    setenv("PATH", (programs + ":" + PATH).c_str(), 1);
    setenv("BUS_USER", (build + "/tests/busUser").c_str(), 1);
    setenv("VIRTUAL_BOARD", (build + "/virtualboard/virtual-board --board board").c_str(), 1);
    setenv("EXAMPLES", path("examples").c_str(), 1);
}

BoardRun::~BoardRun()
{
    if (lockSet() >= 0) {
        semctl(lockSet(), 0, IPC_RMID);
    }
    std::filesystem::remove_all(m_folder);
}

Outcome BoardRun::run(const std::string& command, const std::string& boardOptions) const
{
    for (const char* name : {"log", "bus"}) {
        std::filesystem::remove(path(name));
    }
    const std::string line = "cd " + m_folder + " && $VIRTUAL_BOARD --log log --bus-log bus --time-scale 0 "
                             + boardOptions + " -- " + command + " >output 2>errors </dev/null";
    const int status = std::system(line.c_str());
    const auto read = [this](const char* name) {
        const std::string text = readFile(path(name));
        // From host programs, such as a shell, that can't preload the library; a terminal shows both.
        return EMULATOR[0] == '\0' ? text : std::regex_replace(text, std::regex("ERROR: ld\\.so[^\n]*\n"), "");
    };
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read("output"), read("errors"),
            std::regex_replace(readFile(path("log")), std::regex("(\\.cpp):[0-9]+"), "$1"), readFile(path("bus"))};
}

std::string BoardRun::write(const std::string& name, const std::string& content) const
{
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
}

virtualboard::Memory BoardRun::memory() const
{
    virtualboard::BoardAccess board(path("board").c_str());
    EXPECT_TRUE(board.isOpen()) << board.error();
    return board.chip();
}

void BoardRun::setMemory(const virtualboard::Memory& memory) const
{
    virtualboard::BoardAccess board(path("board").c_str());
    board.chip() = memory;
    EXPECT_TRUE(board.save()) << board.error();
}

int BoardRun::lockValue() const
{
    return semctl(lockSet(), 0, GETVAL);
}

int BoardRun::lockSet() const
{
    const virtualboard::BoardAccess board(path("board").c_str());
    return semget(board.privateKey(PM_MUTEX_KEY), 1, 0);
}

std::string readFile(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

virtualboard::Memory settings(virtualboard::Memory memory)
{
    for (auto* image : {&memory.ram, &memory.flash}) {
        for (const int code : {Page::CODE, StatusWord::CODE, StatusCML::CODE}) {
            const virtualboard::Register* reg = virtualboard::findRegister(code);
            std::fill_n(image->begin() + reg->offset, reg->size, std::uint8_t{0});
        }
    }
    return memory;
}
