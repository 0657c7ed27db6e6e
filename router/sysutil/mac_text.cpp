#include "sysutil/mac_text.h"

inline namespace routerutil {

namespace {

MacText write_mac(const unsigned char *mac, const char *digits, bool colons) {
    MacText result{};
    char *end = result.text;
    for (int i = 0; i < 6; ++i) {
        if (colons && i > 0)
            *end++ = ':';
        *end++ = digits[mac[i] >> 4];
        *end++ = digits[mac[i] & 15];
    }
    return result;
}

constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr char kLowerDigits[] = "0123456789abcdef";

} // namespace

MacText plain_mac(const unsigned char *mac) {
    return write_mac(mac, kUpperDigits, false);
}

MacText upper_mac(const unsigned char *mac) {
    return write_mac(mac, kUpperDigits, true);
}

MacText lower_mac(const unsigned char *mac) {
    return write_mac(mac, kLowerDigits, true);
}

} // namespace routerutil
