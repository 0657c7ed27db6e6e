#include "engine/device/caller_header.h"

#include "dpi/usr_ioctl.h"

#include <cstring>

namespace idpfwd {
namespace {

// Little-endian on both sides, whatever this host is.
std::uint64_t number(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i)
        value |= std::uint64_t{bytes[offset + i]} << (8 * i);
    return value;
}

std::uint32_t number32(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(number(bytes, offset, 4));
}

// Where the fields that follow the pointer union lie.
struct Layout {
    std::size_t pointerWidth, inLength, out, used, outLength;
};
constexpr Layout kLayout32{4, 12, 16, 20, 24};
constexpr Layout kLayout64{8, 16, 24, 32, 40};

constexpr const Layout &kNative = sizeof(void *) == 4 ? kLayout32 : kLayout64;
static_assert(sizeof(forward_ioctl) == (sizeof(void *) == 4 ? kHeaderSize32 : kHeaderSize64));
static_assert(offsetof(forward_ioctl, in_raw) == 8);
static_assert(offsetof(forward_ioctl, in_len) == kNative.inLength);
static_assert(offsetof(forward_ioctl, out) == kNative.out);
static_assert(offsetof(forward_ioctl, out_used_len) == kNative.used);
static_assert(offsetof(forward_ioctl, out_len) == kNative.outLength);

} // namespace

std::uint32_t CallerHeader::inputSize() const {
    return inType == 2 ? inLength : 0;
}

std::optional<CallerHeader> decodeCallerHeader(std::span<const std::uint8_t> bytes) {
    if (bytes.size() != kHeaderSize32 && bytes.size() != kHeaderSize64)
        return std::nullopt;
    const Layout &layout = bytes.size() == kHeaderSize32 ? kLayout32 : kLayout64;
    CallerHeader header;
    header.magic = number32(bytes, 0);
    header.nr = bytes[4];
    header.op = bytes[5];
    header.inType = bytes[7];
    header.inValue = number32(bytes, 8);
    header.inAddress = number(bytes, 8, layout.pointerWidth);
    header.inLength = number32(bytes, layout.inLength);
    header.outAddress = number(bytes, layout.out, layout.pointerWidth);
    header.usedAddress = number(bytes, layout.used, layout.pointerWidth);
    header.outCapacity = number32(bytes, layout.outLength);
    return header;
}

} // namespace idpfwd
