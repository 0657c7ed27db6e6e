// The multi-value helpers over the same text. The input's first byte is an index, its second the
// separator, the rest the text.
#include "fuzz/target.h"

#include "common/quill_util.h"
#include "support/platform_fake.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// A copy that ends where its block of memory ends.
std::unique_ptr<char[]> exact(const std::string &text) {
    auto copy = std::make_unique<char[]>(text.size() + 1);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

void read_fields(int n, const std::string &text, char separator) {
    for (const int size : {1, 16}) {
        const auto out = std::make_unique<char[]>(static_cast<std::size_t>(size));
        if (getNthValueSafe(n, exact(text).get(), separator, out.get(), size) == 0)
            FUZZ_REQUIRE(text.find(out.get()) != std::string::npos);
    }
    FUZZ_REQUIRE(strchr(getNthValue(n, exact(text).get()), ';') == nullptr);
}

void change_fields(int n, const std::string &text, char separator) {
    const auto changed = exact(text);
    const int indices[] = {n, n + 2};
    FUZZ_REQUIRE(deleteNthValueMulti(indices, 2, changed.get(), separator) == 0);
    FUZZ_REQUIRE(strlen(changed.get()) <= text.size());
    FUZZ_REQUIRE(strlen(setNthValue(n, exact(text).get(), exact(text).get())) < 2048);
}

void keep_list(const std::string &text, char separator) {
    const char delimiters[] = {separator, '\0'};
    std::vector<std::array<char, 128>> slots(20); // each token must be ended inside its slot
    for (auto &slot : slots)
        slot.fill('#');
    auto *tokens = reinterpret_cast<char(*)[128]>(slots.data());
    const int count = getTokens(text.c_str(), delimiters, tokens, 20);
    FUZZ_REQUIRE(count >= 0 && count <= 20);
    for (const auto &slot : slots)
        FUZZ_REQUIRE(text.empty() || memchr(slot.data(), '\0', slot.size()) != nullptr);

    for (const int action : {1, 0}) {
        rig::setSetting("list", text);
        const int rewritten = config_nvram_list("list", "entry", delimiters, action, 20);
        FUZZ_REQUIRE(rewritten == 0 || rig::setting("list").size() < 256);
        FUZZ_REQUIRE(rewritten == 1 || rig::setting("list") == text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size < 2)
        return 0;
    const int n = data[0] % 16 - 2;
    const char separator = static_cast<char>(data[1]);
    const std::string text =
        std::string(reinterpret_cast<const char *>(data) + 2, size - 2).c_str();
    read_fields(n, text, separator);
    change_fields(n, text, separator);
    keep_list(text, separator);
    return 0;
}
