#include "ingest/report/device_key.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <stdexcept>

namespace fleet {
namespace {

constexpr std::size_t kShortestKey = 16;
constexpr std::size_t kKeptBytes = 16;

char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

} // namespace

// The context holds the key already digested; every address continues from a reset of it.
struct DeviceKey::Hash {
    explicit Hash(std::string_view key) {
        EVP_MAC *mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
        context = EVP_MAC_CTX_new(mac);
        EVP_MAC_free(mac);
        std::string digest = "SHA256";
        const std::array parameters = {
            OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest.data(), 0),
            OSSL_PARAM_construct_end()};
        if (context == nullptr ||
            EVP_MAC_init(context, reinterpret_cast<const unsigned char *>(key.data()), key.size(),
                         parameters.data()) != 1)
            throw std::runtime_error("HMAC-SHA256 is not to be had");
    }
    ~Hash() { EVP_MAC_CTX_free(context); }
    Hash(const Hash &) = delete;
    Hash &operator=(const Hash &) = delete;

    EVP_MAC_CTX *context = nullptr;
};

DeviceKey::DeviceKey() = default;
DeviceKey::~DeviceKey() = default;
DeviceKey::DeviceKey(DeviceKey &&) noexcept = default;
DeviceKey &DeviceKey::operator=(DeviceKey &&) noexcept = default;

DeviceKey::DeviceKey(std::string_view key) {
    if (key.size() < kShortestKey)
        throw std::invalid_argument("the device key needs at least 16 bytes");
    hash_ = std::make_unique<Hash>(key);
}

std::string DeviceKey::nameOf(std::string_view address) const {
    if (!hash_)
        return std::string(address);
    std::string text(address);
    std::transform(text.begin(), text.end(), text.begin(), upper);
    std::array<unsigned char, 32> digest{};
    std::size_t length = 0;
    if (EVP_MAC_init(hash_->context, nullptr, 0, nullptr) != 1 ||
        EVP_MAC_update(hash_->context, reinterpret_cast<const unsigned char *>(text.data()),
                       text.size()) != 1 ||
        EVP_MAC_final(hash_->context, digest.data(), &length, digest.size()) != 1)
        throw std::runtime_error("HMAC-SHA256 failed");
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string name;
    name.reserve(2 * kKeptBytes);
    for (std::size_t i = 0; i < kKeptBytes; ++i) {
        name += kDigits[digest[i] >> 4U];
        name += kDigits[digest[i] & 15U];
    }
    return name;
}

} // namespace fleet
