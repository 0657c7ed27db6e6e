// The request header as a caller's memory holds it: pointers are as wide as the caller's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace idpfwd {

constexpr std::size_t kHeaderSize32 = 44; // callers with 32-bit pointers
constexpr std::size_t kHeaderSize64 = 64; // callers with 64-bit pointers

// What a request may bring along; more is refused with EINVAL.
constexpr std::uint32_t kMaxInput = 1U << 20;

struct CallerHeader {
    std::uint32_t magic = 0;
    std::uint8_t nr = 0;
    std::uint8_t op = 0;
    std::uint8_t inType = 0;
    std::uint32_t inValue = 0;     // in_u32
    std::uint64_t inAddress = 0;   // in_raw
    std::uint32_t inLength = 0;    // in_len
    std::uint64_t outAddress = 0;  // out; 0 when the caller wants no output
    std::uint64_t usedAddress = 0; // out_used_len; 0 when the caller does not ask
    std::uint32_t outCapacity = 0; // out_len

    // How many bytes of input the request brings.
    [[nodiscard]] std::uint32_t inputSize() const;

    // How many bytes of output the caller can take.
    [[nodiscard]] std::uint32_t capacity() const { return outAddress != 0 ? outCapacity : 0; }
};

// Reads a header of 44 or 64 bytes; nothing for any other size.
std::optional<CallerHeader> decodeCallerHeader(std::span<const std::uint8_t> bytes);

} // namespace idpfwd
