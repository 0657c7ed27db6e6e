#include "board/board_wireless.h"

#include "board/board_records.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

constexpr int kSecondBand = 2;

struct TextRule {
    std::size_t shortest;
    std::size_t longest;
    const char *length_complaint; // the longest length follows it
    const char *character_complaint;
};
constexpr TextRule kSsid{0, 32, "Invalid SSID length. Max", "Invalid chars in SSID!"};
constexpr TextRule kPassphrase{8, 63, "Invalid Passphrase length. 8 -",
                               "Invalid chars in passphrase!"};

int ssid_record(int band) {
    return band == kSecondBand ? BD_RECORD_SSID_2 : BD_RECORD_SSID_1;
}

int passphrase_record(int band) {
    return band == kSecondBand ? BD_RECORD_PASSPHRASE_2 : BD_RECORD_PASSPHRASE_1;
}

bool length_fits(std::string_view text, const TextRule &rule) {
    return text.size() >= rule.shortest && text.size() <= rule.longest;
}

bool is_printable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

int read_text(char *out, int size, int record, const TextRule &rule) {
    if (out == nullptr || size < 1)
        return -1;
    memset(out, 0, static_cast<std::size_t>(size));
    uint32_t length = 0;
    if (bd_read_record(record, out, &length, size) != 0)
        return -1;
    out[size - 1] = '\0';
    const std::string_view text(out);
    return length_fits(text, rule) && is_printable(text) ? 0 : -1;
}

int write_text(const char *text, int record, const TextRule &rule) {
    if (text == nullptr)
        return -1;
    const std::string_view bounded(text, strnlen(text, rule.longest + 1));
    if (!length_fits(bounded, rule)) {
        printf("%s %d chars!\n", rule.length_complaint, static_cast<int>(rule.longest));
        return -1;
    }
    if (!is_printable(bounded)) {
        printf("%s", rule.character_complaint);
        return -1;
    }
    return bd_write_record(record, text, static_cast<int>(bounded.size() + 1));
}

} // namespace

int bd_read_ssid(char *out, int size, int band) {
    return read_text(out, size, ssid_record(band), kSsid);
}

int bd_read_passphrase(char *out, int size, int band) {
    return read_text(out, size, passphrase_record(band), kPassphrase);
}

int bd_write_ssid(const char *text, int band) {
    return write_text(text, ssid_record(band), kSsid);
}

int bd_write_passphrase(const char *text, int band) {
    return write_text(text, passphrase_record(band), kPassphrase);
}
