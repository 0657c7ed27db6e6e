// The bytes that things are kept in: numbers of variable length, and a checksum at the end. See
// docs/history_format.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace usage {

using Packed = std::vector<std::uint8_t>;
using PackedView = std::span<const std::uint8_t>;

class Packer {
  public:
    void byte(std::uint8_t value) { bytes_.push_back(value); }
    // Seven bits in a byte, the lowest first; the high bit says that more follow.
    void number(std::uint64_t value);
    void text(std::string_view value); // its length, then its bytes
    void bytes(PackedView value);      // as they are

    // Everything so far and its checksum.
    Packed finish();

  private:
    Packed bytes_;
};

// Reads what a Packer wrote. From the first thing that isn't there on everything is 0 or empty and
// good() is false.
class Unpacker {
  public:
    // Not good from the beginning when the checksum is wrong.
    explicit Unpacker(PackedView packed);

    std::uint8_t byte();
    std::uint64_t number() {
        if (!good_ || rest_.empty() || rest_[0] >= 0x80)
            return longNumber();
        const std::uint64_t value = rest_[0]; // most are small
        rest_ = rest_.subspan(1);
        return value;
    }
    std::uint32_t number32(); // not good when it is larger
    std::string text();
    void bytes(std::span<std::uint8_t> value);

    [[nodiscard]] bool good() const { return good_; }
    [[nodiscard]] bool atEnd() const { return rest_.empty(); }
    void refuse() { good_ = false; }

  private:
    std::uint64_t longNumber();

    PackedView rest_;
    bool good_ = true;
};

} // namespace usage
