// The multi-value helpers over the same text. The input's first byte is an index, its second the
// separator, the rest the text.
#include "fuzz/target.h"

#include "common/quill_util.h"
#include "support/platform_fake.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using Fields = std::vector<std::string>;

Fields split(const std::string &text, char separator) {
    Fields fields(1);
    for (const char c : text) {
        if (c == separator)
            fields.emplace_back();
        else
            fields.back() += c;
    }
    return fields;
}

std::string join(const Fields &fields, char separator) {
    std::string text;
    for (std::size_t i = 0; i < fields.size(); ++i)
        text += (i > 0 ? std::string(1, separator) : "") + fields[i];
    return text;
}

// A copy that ends where its block of memory ends.
std::unique_ptr<char[]> exact(const std::string &text) {
    auto copy = std::make_unique<char[]>(text.size() + 1);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

void read_fields(int n, const std::string &text, char separator) {
    const Fields fields = split(text, separator);
    const auto wanted = static_cast<std::size_t>(std::max(n, 0));
    const bool there = wanted < fields.size() && (n >= 0 || fields.size() > 1);
    for (const int size : {1, 16}) {
        const auto out = std::make_unique<char[]>(static_cast<std::size_t>(size));
        const int result = getNthValueSafe(n, exact(text).get(), separator, out.get(), size);
        FUZZ_REQUIRE(result == (there ? 0 : -1));
        if (there)
            FUZZ_REQUIRE(out.get() == fields[wanted].substr(0, static_cast<std::size_t>(size) - 1));
    }
    const auto whole = exact(text);
    Fields present = split(text, ';');
    std::erase(present, "");
    const char *value = getNthValue(n, whole.get());
    FUZZ_REQUIRE(value == (wanted < present.size() ? present[wanted] : ""));
}

void delete_fields(int n, const std::string &text, char separator) {
    Fields fields = split(text, separator);
    const auto changed = exact(text);
    const int indices[] = {n, n + 2};
    FUZZ_REQUIRE(deleteNthValueMulti(indices, 2, changed.get(), separator) == 0);
    if (n < 1) // the first field leaves its separator behind, or a semicolon less
        return;
    for (const int index : {n + 2, n}) {
        if (static_cast<std::size_t>(index) < fields.size())
            fields.erase(fields.begin() + index);
    }
    FUZZ_REQUIRE(changed.get() == join(fields, separator));
}

void set_field(int n, const std::string &text) {
    const std::string result = setNthValue(n, text.c_str(), "value");
    FUZZ_REQUIRE(result.size() < 2048);
    if (n >= 0 && n <= 8 && text.size() < 256 && split(text, ';').size() <= 9)
        FUZZ_REQUIRE(split(result, ';').at(static_cast<std::size_t>(n)) == "value");
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
    delete_fields(n, text, separator);
    set_field(n, text);
    keep_list(text, separator);
    const auto separators = std::count(text.begin() + (text.empty() ? 0 : 1), text.end(), ';');
    FUZZ_REQUIRE(getValueCount(text.c_str()) == 1 + separators);
    return 0;
}
