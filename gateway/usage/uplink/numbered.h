// Files that are told apart by the number in their name, such as "taken-17".
#pragma once

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string_view>

namespace uplink {

// The entries of a folder whose names are prefix, a number and suffix, by their number. Throws
// std::filesystem::filesystem_error.
inline std::map<std::int64_t, std::filesystem::path>
numberedFiles(const std::filesystem::path &folder, std::string_view prefix,
              std::string_view suffix = "") {
    std::map<std::int64_t, std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename();
        std::string_view middle = name;
        if (!middle.starts_with(prefix) || !middle.ends_with(suffix) ||
            middle.size() < prefix.size() + suffix.size())
            continue;
        middle.remove_prefix(prefix.size());
        middle.remove_suffix(suffix.size());
        std::int64_t number = 0;
        const char *end = middle.data() + middle.size();
        const auto parsed = std::from_chars(middle.data(), end, number);
        if (parsed.ec == std::errc{} && parsed.ptr == end && number > 0 && number < INT64_MAX)
            files.emplace(number, entry.path());
    }
    return files;
}

// The number for the next one.
inline std::int64_t nextNumber(const std::map<std::int64_t, std::filesystem::path> &files) {
    return files.empty() ? 1 : files.rbegin()->first + 1;
}

} // namespace uplink
