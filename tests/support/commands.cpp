#include "support/commands.h"

#include "support/files.h"

#include <filesystem>
#include <utility>

namespace rig {
namespace {

// One call is its words, each ended by the unit separator, and a record separator.
constexpr const char *kRecord = "/var/log/recorded-commands";
constexpr char kWordEnd = '\x1f';
constexpr char kCallEnd = '\x1e';

std::vector<std::vector<std::string>> calls() {
    std::vector<std::vector<std::string>> result;
    if (!fileExists(kRecord))
        return result;
    std::vector<std::string> words;
    std::string word;
    for (const char c : readFile(kRecord)) {
        if (c == kWordEnd)
            words.push_back(std::exchange(word, ""));
        else if (c == kCallEnd)
            result.push_back(std::exchange(words, {}));
        else
            word += c;
    }
    return result;
}

} // namespace

void fakeCommand(const std::string &name, const std::string &body) {
    const std::string path = name.find('/') == std::string::npos ? "/bin/" + name : name;
    std::filesystem::remove(path); // a link to the real tool must not be written through
    writeFile(path, "#!/bin/sh\nprintf '%s\\037' " + name + " \"$@\" >>" + kRecord +
                        "\nprintf '\\036' >>" + kRecord + "\n" + body + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

std::vector<std::string> recordedCommands() {
    std::vector<std::string> lines;
    for (const auto &words : calls()) {
        std::string line;
        for (const auto &word : words)
            line += (line.empty() ? "" : " ") + word;
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> recordedWords(std::size_t n) {
    return calls().at(n);
}

void forgetCommands() {
    std::filesystem::remove(kRecord);
}

} // namespace rig
