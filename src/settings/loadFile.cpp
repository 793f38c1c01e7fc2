#include "loadFile.h"

#include "listFile.h"
#include "listLine.h"
#include "messages.h"
#include "text.h"
#include "textFile.h"

namespace {

/// The reasons why a file or list can't be used, each a line.
using Reasons = std::vector<std::string>;

std::unique_ptr<PmFile> load(const std::string& path, Reasons& reasons)
{
    std::string text;
    std::string error;
    if (!readText(path, text, error)) {
        reasons.push_back(error);
        return nullptr;
    }
    if (!isList(text)) {
        auto file = std::make_unique<PmFile>(path, std::move(text));
        if (!isLoadable(*file, error)) {
            reasons.push_back(error);
        }
        return reasons.empty() ? std::move(file) : nullptr;
    }
    ListFile made = readList(path, text);
    for (const auto& [line, mistake] : made.mistakes) {
        reasons.push_back(formatted("%s:%u: %s", path.c_str(), line, mistake.c_str()));
    }
    if (reasons.empty() && made.file == nullptr) {
        reasons.push_back(made.trouble);
    }
    knowNames(made.names);
    return reasons.empty() ? std::move(made.file) : nullptr;
}

} // namespace

std::unique_ptr<PmFile> loadFile(const std::string& path, std::string& error)
{
    Reasons reasons;
    auto file = load(path, reasons);
    if (file == nullptr) {
        error = reasons.front();
        if (reasons.size() > 1) {
            error += formatted(" (and %zu more mistakes)", reasons.size() - 1);
        }
    }
    return file;
}

std::unique_ptr<PmFile> loadOrTell(const std::string& path)
{
    Reasons reasons;
    auto file = load(path, reasons);
    for (const std::string& reason : reasons) {
        tell(reason);
    }
    return file;
}
