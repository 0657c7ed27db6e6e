#include "board/board_fields.h"

#include "board/board_block.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

struct Field {
    std::size_t offset;
    std::size_t width;
};

#define FIELD(member) \
    { offsetof(BoardFields, member), sizeof(BoardFields::member) }
constexpr Field kBoardId = FIELD(board_id);
constexpr Field kSerialNumber = FIELD(serial_number);
constexpr Field kPin = FIELD(pin);
constexpr Field kHardwareRevision = FIELD(hardware_revision);
constexpr Field kSoftwareFeature = FIELD(software_feature);
#undef FIELD

// Copies at most size bytes of the field and a terminator.
void copy_field(char *out, std::size_t size, const unsigned char *block, const Field &field) {
    const std::size_t length = std::min(size, field.width);
    memcpy(out, block + field.offset, length);
    out[length] = '\0';
}

int read_field(char *out, int size, const Field &field) {
    if (out == nullptr || size < 0)
        return -1;
    const auto block = load_board_block();
    if (!block)
        return -1;
    copy_field(out, static_cast<std::size_t>(size), block.get(), field);
    return 0;
}

// Writes text, of limit characters at the most, into the cleared field.
int write_field(const char *text, const Field &field, std::size_t limit, const char *label) {
    if (text == nullptr)
        return -1;
    const auto block = load_board_block();
    if (!block)
        return -1;
    const std::size_t length = strnlen(text, limit + 1);
    if (length > limit) {
        // Deliberate: the field's width is named, also where the limit is below it.
        printf("%s too long. Max %d chars!\n", label, static_cast<int>(field.width));
        return -1;
    }
    memset(block.get() + field.offset, 0, field.width);
    memcpy(block.get() + field.offset, text, length);
    return write_board_data(block.get());
}

int write_field(const char *text, const Field &field, const char *label) {
    return write_field(text, field, field.width, label);
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool all_digits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), is_digit);
}

// The digits' sum, every odd one counted three times, of a PIN with its check digit ends in 0.
bool check_digit_holds(std::string_view pin) {
    int sum = 0;
    int weight = 3;
    for (const char digit : pin) {
        sum += weight * (digit - '0');
        weight = 4 - weight;
    }
    return sum % 10 == 0;
}

bool accept_pin(const char *text) {
    constexpr int digits = kPin.width;
    if (strnlen(text, kPin.width + 1) != kPin.width) {
        printf("length error (%d digits)\n", digits);
        return false;
    }
    const std::string_view pin(text, kPin.width);
    if (!all_digits(pin)) {
        printf("format error (%d digits)\n", digits);
        return false;
    }
    if (!check_digit_holds(pin)) {
        printf("checksum failed!");
        return false;
    }
    return true;
}

} // namespace

int bd_read_sn(char *out, int size) {
    return read_field(out, size, kSerialNumber);
}

int bd_write_sn(const char *text) {
    return write_field(text, kSerialNumber, "serial number");
}

int bd_read_sw_feature(char *out, int size) {
    return read_field(out, size, kSoftwareFeature);
}

int bd_write_sw_feature(const char *text) {
    return write_field(text, kSoftwareFeature, "SW feature");
}

int bd_read_hw_rev(char *out, int size) {
    return read_field(out, size, kHardwareRevision);
}

int bd_write_hw_rev(const char *text) {
    return write_field(text, kHardwareRevision, "HW rev");
}

int bd_read_board_id(char *out, int size) {
    return size < 1 ? -1 : read_field(out, size - 1, kBoardId);
}

int bd_write_board_id(const char *text) {
    return write_field(text, kBoardId, kBoardId.width - 1, "Board ID");
}

int bd_read_eth_mac(unsigned char *mac1, unsigned char *mac2) {
    if (mac1 == nullptr || mac2 == nullptr)
        return -1;
    const auto block = load_board_block();
    if (!block)
        return -1;
    memcpy(mac1, block.get() + offsetof(BoardFields, first_mac), sizeof BoardFields::first_mac);
    memcpy(mac2, block.get() + offsetof(BoardFields, second_mac), sizeof BoardFields::second_mac);
    return 0;
}

int bd_write_eth_mac(const unsigned char *mac1, const unsigned char *mac2) {
    if (mac1 == nullptr || mac2 == nullptr)
        return -1;
    const auto block = load_board_block();
    if (!block)
        return -1;
    memcpy(block.get() + offsetof(BoardFields, first_mac), mac1, sizeof BoardFields::first_mac);
    memcpy(block.get() + offsetof(BoardFields, second_mac), mac2, sizeof BoardFields::second_mac);
    return write_board_data(block.get());
}

int bd_read_pin(char *out, int size) {
    if (out == nullptr || size < 0)
        return -1;
    const auto block = load_board_block();
    if (!block)
        return -1;
    copy_field(out, static_cast<std::size_t>(size), block.get(), kPin);
    const auto *pin = reinterpret_cast<const char *>(block.get() + kPin.offset);
    if (!all_digits({pin, kPin.width})) {
        printf("PIN number not found!");
        return -1;
    }
    return 0;
}

int bd_write_pin(const char *text) {
    if (text == nullptr || !accept_pin(text))
        return -1;
    return write_field(text, kPin, "PIN");
}
