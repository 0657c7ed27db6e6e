// Whatever a text holds, the shell sees it as one word of the command, unchanged.
#include "fuzz/target.h"

#include "common/command.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>

namespace {

std::optional<std::string> command;

// The one word that the shell makes of this, or nothing when the text could mean more.
std::optional<std::string> shell_word(const std::string &text) {
    std::string word;
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\'') {
            quoted = !quoted;
            continue;
        }
        const bool escaped = !quoted && c == '\\' && i + 1 < text.size();
        if (!quoted && !escaped && isalnum(static_cast<unsigned char>(c)) == 0 &&
            std::string("_./:@%+=,-").find(c) == std::string::npos)
            return std::nullopt;
        word += escaped ? text[++i] : c;
    }
    return quoted ? std::nullopt : std::optional(word);
}

} // namespace

// No command is ever run.
extern "C" int system(const char *line) {
    command = line;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::string word = text.c_str();
    for (const std::size_t room : {std::size_t{64}, kLargestCommand, std::size_t{1} << 20}) {
        command.reset();
        const int status = run_command(room, "tool %s", word.c_str());
        FUZZ_REQUIRE(status == (command ? 0 : -1));
        if (!command) {
            FUZZ_REQUIRE(4 * word.size() + sizeof "tool ''" > std::min(room, kLargestCommand));
            continue;
        }
        FUZZ_REQUIRE(command->size() < std::min(room, kLargestCommand));
        FUZZ_REQUIRE(command->starts_with("tool "));
        FUZZ_REQUIRE(shell_word(command->substr(5)) == word);
        FUZZ_REQUIRE(word.empty() || word.front() != '-' || command->at(5) == '\'');
    }
    return 0;
}
