#include "dpi/line_scanner.h"

#include <cstring>
#include <limits>

inline namespace routerutil {

void LineScanner::skip_blanks() {
    if (fits_)
        rest_ += strspn(rest_, kBlanks);
}

// All digits are consumed, also those of a number that is too large.
bool LineScanner::scan_digits(Digits &digits) {
    if (!fits_)
        return false;
    skip_blanks();
    digits = {0, *rest_ == '-', false};
    if (*rest_ == '-' || *rest_ == '+')
        ++rest_;
    fits_ = *rest_ >= '0' && *rest_ <= '9';
    for (; *rest_ >= '0' && *rest_ <= '9'; ++rest_) {
        const uint64_t next = uint64_t{digits.value} * 10 + static_cast<uint64_t>(*rest_ - '0');
        digits.overflow = digits.overflow || next > std::numeric_limits<uint32_t>::max();
        digits.value = static_cast<uint32_t>(next);
    }
    return fits_;
}

LineScanner &LineScanner::signed_number(uint32_t &value) {
    Digits digits;
    if (!scan_digits(digits))
        return *this;
    const uint32_t limit = digits.negative ? 0x80000000u : 0x7FFFFFFFu;
    const uint32_t magnitude = digits.overflow || digits.value > limit ? limit : digits.value;
    value = digits.negative ? 0u - magnitude : magnitude;
    return *this;
}

LineScanner &LineScanner::number(uint32_t &value) {
    Digits digits;
    if (!scan_digits(digits))
        return *this;
    if (digits.overflow)
        value = std::numeric_limits<uint32_t>::max();
    else
        value = digits.negative ? 0u - digits.value : digits.value;
    return *this;
}

LineScanner &LineScanner::literal(char expected) {
    fits_ = fits_ && *rest_ == expected;
    if (fits_)
        ++rest_;
    return *this;
}

LineScanner &LineScanner::copy_until(const char *stops, char *text, std::size_t size) {
    std::size_t length = fits_ ? strcspn(rest_, stops) : 0;
    if (length > size - 1)
        length = size - 1;
    fits_ = length > 0;
    if (fits_) {
        memcpy(text, rest_, length);
        text[length] = '\0';
        rest_ += length;
    }
    return *this;
}

} // namespace routerutil
