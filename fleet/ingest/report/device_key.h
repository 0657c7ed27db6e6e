// Device addresses as they are kept: a keyed hash, so that the store knows a device again and
// nobody without the operator's key knows which one it is.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace fleet {

class DeviceKey {
  public:
    // Addresses are kept as they are.
    DeviceKey();
    // Addresses become the first 128 bits of HMAC-SHA256 under this key, in hexadecimal digits.
    // Throws std::invalid_argument when the key has less than 16 bytes.
    explicit DeviceKey(std::string_view key);
    ~DeviceKey();
    DeviceKey(DeviceKey &&) noexcept;
    DeviceKey &operator=(DeviceKey &&) noexcept;

    // What stands in the store for an address; letters of either case are the same.
    [[nodiscard]] std::string nameOf(std::string_view address) const;

  private:
    struct Hash;
    std::unique_ptr<Hash> hash_;
};

} // namespace fleet
