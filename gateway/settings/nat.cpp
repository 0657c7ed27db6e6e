#include "platform/nat.h"

#include "platform/nvram.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace {
// The word is a setting like any other, so that it can be shown, imported and saved.
constexpr const char *kFeatureSetting = "agApi_feature";

bool is_digit(char character) {
    return character >= '0' && character <= '9';
}
} // namespace

int agApi_feature_get(uint32_t *word) {
    const char *text = kelpNvramConfig_get(kFeatureSetting);
    if (*text == '\0') { // never set, or a store that can't be opened: saving tells which
        if (kelpNvramConfig_save() != 0)
            return -1;
        *word = 0;
        return 0;
    }
    if (!is_digit(*text))
        return -1;
    char *end = nullptr;
    const unsigned long long value = strtoull(text, &end, 0);
    if (*end != '\0' || value > UINT32_MAX)
        return -1;
    *word = static_cast<uint32_t>(value);
    return 0;
}

int agApi_feature_set(uint32_t word) {
    char text[16];
    snprintf(text, sizeof text, "0x%08" PRIx32, word);
    return kelpNvramConfig_set(kFeatureSetting, text);
}
