// What the kernel tells in /proc: the flash partitions and the mounts. Whatever stands there, a
// command that is made of it is one command with one argument.
#include "fuzz/router/file_input.h"
#include "fuzz/target.h"

#include "analytics/process_stop.h"
#include "board/mtd_util.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

// Whether a word is plain, or stands in quotes from end to end.
bool is_one_word(const std::string &word) {
    bool quoted = false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '\'')
            quoted = !quoted;
        else if (word[i] == '\\' && !quoted && i + 1 < word.size())
            ++i;
        else if (!quoted && strchr(" \t\n;&|<>$`\"()*?[]{}~!#", word[i]) != nullptr)
            return false;
    }
    return !quoted;
}

} // namespace

extern "C" int system(const char *command) {
    constexpr std::size_t kVerb = sizeof "umount " - 1;
    if (strncmp(command, "umount ", kVerb) == 0)
        FUZZ_REQUIRE(is_one_word(command + kVerb));
    return 0;
}
extern "C" unsigned int sleep(unsigned int) {
    return 0;
}
extern "C" int unlink(const char *) noexcept {
    return 0;
}
// The partner's pid file exists.
extern "C" int access(const char *, int) noexcept {
    return 0;
}
extern "C" int open(const char *path, int, ...) {
    FUZZ_REQUIRE(strcmp(path, "board data") == 0 || strncmp(path, "/dev/mtd", 8) == 0 ||
                 strcmp(path, "/dev/console") == 0);
    errno = ENOENT;
    return -1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const fuzz::FileInput input(data, size);
    FUZZ_REQUIRE(mtd_open("board data", O_RDONLY) == -1);
    stop_process();
    return 0;
}
