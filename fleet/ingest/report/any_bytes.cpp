#include "ingest/report/any_bytes.h"

#include <cstddef>

namespace fleet {
namespace {

unsigned at(std::string_view text, std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
}

bool within(unsigned value, unsigned least, unsigned most) {
    return value >= least && value <= most;
}

// U+F780 + low seven bits of the byte, in UTF-8: EF 9E 80 to EF 9F BF.
constexpr unsigned kLead = 0xEF;

// Length of the valid sequence at the beginning of a text, 0 where there is none. The second byte
// of some is narrower: no overlong forms, no surrogates, nothing above U+10FFFF; and none of ours.
std::size_t sequenceLength(std::string_view text) {
    const unsigned first = at(text, 0);
    const unsigned second = at(text, 1);
    const auto follows = [&](std::size_t index) { return within(at(text, index), 0x80, 0xBF); };
    if (first < 0x80)
        return 1;
    if (within(first, 0xC2, 0xDF))
        return follows(1) ? 2 : 0;
    if (within(first, 0xE0, 0xEF)) {
        const bool narrow = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F);
        const bool ours = first == kLead && within(second, 0x9E, 0x9F);
        return !narrow && !ours && follows(1) && follows(2) ? 3 : 0;
    }
    if (within(first, 0xF0, 0xF4)) {
        const bool narrow = (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
        return !narrow && follows(1) && follows(2) && follows(3) ? 4 : 0;
    }
    return 0;
}

} // namespace

std::string shelterBytes(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 64);
    while (!text.empty()) {
        const std::size_t length = sequenceLength(text);
        if (length > 0) {
            out += text.substr(0, length);
            text.remove_prefix(length);
            continue;
        }
        const unsigned low = at(text, 0) & 0x7FU;
        out += static_cast<char>(kLead);
        out += static_cast<char>(0x9E + (low >> 6U));
        out += static_cast<char>(0x80 + (low & 0x3FU));
        text.remove_prefix(1);
    }
    return out;
}

std::string unshelterBytes(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool sheltered = at(text, i) == kLead && within(at(text, i + 1), 0x9E, 0x9F) &&
                               within(at(text, i + 2), 0x80, 0xBF);
        if (!sheltered) {
            out += text[i];
            continue;
        }
        out += static_cast<char>(0x80U | ((at(text, i + 1) - 0x9EU) << 6U) |
                                 (at(text, i + 2) & 0x3FU));
        i += 2;
    }
    return out;
}

} // namespace fleet
