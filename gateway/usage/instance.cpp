#include "usage/instance.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace usage {
namespace {

void addFolders(const std::string &root, std::set<std::string> &names) {
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(root, error)) {
        if (entry.is_directory(error))
            names.insert(entry.path().filename());
    }
}

std::string onlyInstance(const std::string &stateRoot, const std::string &runtimeRoot) {
    std::set<std::string> names;
    addFolders(stateRoot, names);
    addFolders(runtimeRoot, names);
    if (names.empty())
        throw UsageError("there is no instance below " + stateRoot +
                         ": say --instance, or --state and --runtime");
    if (names.size() == 1)
        return *names.begin();
    std::string all;
    for (const std::string &name : names)
        all += (all.empty() ? "" : ", ") + name;
    throw UsageError("there are several instances, say --instance: " + all);
}

std::string lastPart(std::filesystem::path folder) {
    folder = std::filesystem::absolute(folder).lexically_normal();
    return folder.has_filename() ? folder.filename() : folder.parent_path().filename();
}

} // namespace

Place findPlace(Place given, const std::string &stateRoot, const std::string &runtimeRoot) {
    std::string &name = given.instance;
    if (name.find('/') != std::string::npos || name.starts_with('.'))
        throw UsageError("'" + name + "' is no instance's name");
    if (name.empty() && (!given.state.empty() || !given.runtime.empty()))
        name = lastPart(given.state.empty() ? given.runtime : given.state);
    if (name.empty())
        name = onlyInstance(stateRoot, runtimeRoot);
    if (given.state.empty())
        given.state = stateRoot + "/" + name;
    if (given.runtime.empty())
        given.runtime = runtimeRoot + "/" + name;
    return given;
}

} // namespace usage
