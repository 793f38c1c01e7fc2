#include "runFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "text.h"
#include "textFile.h"

namespace {

constexpr unsigned int MOST_RUNS = 999999;
constexpr mode_t FOLDER_MODE = 0755;

std::string reasonFor(const std::string& path, const char* what)
{
    return path + ": " + what + ": " + std::strerror(errno);
}

std::vector<std::string> namesIn(const std::string& folder)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), closedir);
    if (open == nullptr) {
        return names;
    }
    while (const dirent* entry = readdir(open.get())) {
        names.emplace_back(entry->d_name);
    }
    return names;
}

std::string folderOf(const std::string& path)
{
    const std::size_t end = path.rfind('/');
    return end == std::string::npos ? "." : path.substr(0, end);
}

} // namespace

unsigned int numberOfRun(const std::string& name)
{
    const std::size_t end = name.find('-');
    return end == std::string::npos ? 0 : takeNumber(name.substr(0, end), 1, MOST_RUNS).value_or(0);
}

std::optional<std::string> openKeep(const std::string& folder, std::string& error)
{
    if (mkdir(folder.c_str(), FOLDER_MODE) != 0 && errno != EEXIST) {
        error = reasonFor(folder, "cannot be made");
        return std::nullopt;
    }
    const std::unique_ptr<char, void (*)(void*)> real(realpath(folder.c_str(), nullptr), std::free);
    struct stat status = {};
    if (real == nullptr || stat(real.get(), &status) != 0) {
        error = reasonFor(folder, "cannot be used");
        return std::nullopt;
    }
    if (!S_ISDIR(status.st_mode)) {
        error = folder + ": is no folder";
        return std::nullopt;
    }
    return std::string(real.get());
}

std::vector<std::string> listRuns(const std::string& keep)
{
    std::vector<std::string> runs = namesIn(keep);
    std::erase_if(runs, [](const std::string& name) { return numberOfRun(name) == 0; });
    std::ranges::sort(runs, [](const std::string& one, const std::string& other) {
        return numberOfRun(one) > numberOfRun(other);
    });
    return runs;
}

std::optional<std::string> findRun(const std::string& keep, const std::string& name)
{
    const auto number = takeNumber(name, 1, MOST_RUNS);
    for (const std::string& run : listRuns(keep)) {
        if (run == name || (number && numberOfRun(run) == *number)) {
            return run;
        }
    }
    return std::nullopt;
}

std::optional<std::string> makeRunFolder(const std::string& keep, std::string& date,
                                         std::string& error)
{
    date = timeText();
    const std::vector<std::string> runs = listRuns(keep);
    const unsigned int number = runs.empty() ? 1 : numberOfRun(runs.front()) + 1;
    const std::string name = formatted("%04u-%s", number, date.substr(0, date.find('T')).c_str());
    if (mkdir((keep + "/" + name).c_str(), FOLDER_MODE) != 0) {
        error = reasonFor(keep + "/" + name, "cannot be made");
        return std::nullopt;
    }
    return name;
}

void clearFolder(const std::string& folder, const std::vector<std::string>& kept)
{
    for (const std::string& name : namesIn(folder)) {
        if (name != "." && name != ".." && std::ranges::find(kept, name) == kept.end()) {
            unlink(formatted("%s/%s", folder.c_str(), name.c_str()).c_str());
        }
    }
    rmdir(folder.c_str());
}

bool syncFolder(const std::string& folder, std::string& error)
{
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // Not every file system syncs folders.
    const bool synced = fd >= 0 && (fsync(fd) == 0 || errno == EINVAL);
    if (!synced) {
        error = reasonFor(folder, "cannot be synced");
    }
    if (fd >= 0) {
        close(fd);
    }
    return synced;
}

bool writeSynced(const std::string& path, const std::string& text, std::string& error)
{
    if (!writeFile(path, text, Existing::REPLACE)) {
        error = reasonFor(path, "cannot be written");
        return false;
    }
    return syncFolder(folderOf(path), error);
}

bool removeSynced(const std::string& path, std::string& error)
{
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
        error = reasonFor(path, "cannot be removed");
        return false;
    }
    return syncFolder(folderOf(path), error);
}
