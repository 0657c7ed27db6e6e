#include "usage/store/packing.h"

#include <algorithm>
#include <limits>
#include <zlib.h>

namespace usage {
namespace {

constexpr std::size_t kChecksumSize = 4;

std::uint32_t checksum(PackedView bytes) {
    return static_cast<std::uint32_t>(crc32_z(0, bytes.data(), bytes.size()));
}

} // namespace

void Packer::number(std::uint64_t value) {
    while (value >= 0x80) {
        byte(static_cast<std::uint8_t>(value | 0x80U));
        value >>= 7U;
    }
    byte(static_cast<std::uint8_t>(value));
}

void Packer::text(std::string_view value) {
    number(value.size());
    bytes_.insert(bytes_.end(), value.begin(), value.end());
}

void Packer::bytes(PackedView value) {
    bytes_.insert(bytes_.end(), value.begin(), value.end());
}

Packed Packer::finish() {
    const std::uint32_t sum = checksum(bytes_);
    for (unsigned shift = 0; shift < 32; shift += 8)
        byte(static_cast<std::uint8_t>(sum >> shift));
    return std::move(bytes_);
}

Unpacker::Unpacker(PackedView packed) {
    good_ = packed.size() >= kChecksumSize;
    if (!good_)
        return;
    rest_ = packed.first(packed.size() - kChecksumSize);
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < kChecksumSize; ++i)
        sum |= static_cast<std::uint32_t>(packed[rest_.size() + i]) << (8 * i);
    good_ = sum == checksum(rest_);
}

std::uint8_t Unpacker::byte() {
    good_ = good_ && !rest_.empty();
    if (!good_)
        return 0;
    const std::uint8_t value = rest_[0];
    rest_ = rest_.subspan(1);
    return value;
}

std::uint64_t Unpacker::longNumber() {
    std::uint64_t value = 0;
    const std::size_t most = std::min<std::size_t>(rest_.size(), 10); // of 7 bits each
    for (std::size_t i = 0; i < most && good_; ++i) {
        const std::uint64_t bits = rest_[i] & 0x7FU;
        if (i == 9 && bits > 1)
            break;
        value |= bits << (7 * i);
        if (rest_[i] < 0x80) {
            rest_ = rest_.subspan(i + 1);
            return value;
        }
    }
    good_ = false;
    return 0;
}

std::uint32_t Unpacker::number32() {
    const std::uint64_t value = number();
    good_ = good_ && value <= std::numeric_limits<std::uint32_t>::max();
    return good_ ? static_cast<std::uint32_t>(value) : 0;
}

std::string Unpacker::text() {
    const std::uint64_t size = number();
    good_ = good_ && size <= rest_.size();
    if (!good_)
        return {};
    std::string value(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(size));
    rest_ = rest_.subspan(size);
    return value;
}

void Unpacker::bytes(std::span<std::uint8_t> value) {
    good_ = good_ && value.size() <= rest_.size();
    if (!good_)
        return;
    std::copy_n(rest_.begin(), value.size(), value.begin());
    rest_ = rest_.subspan(value.size());
}

} // namespace usage
