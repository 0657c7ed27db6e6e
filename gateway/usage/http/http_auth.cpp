#include "usage/http/http_auth.h"

#include <algorithm>
#include <crypt.h>
#include <cstring>
#include <iterator>
#include <memory>
#include <nettle/base64.h>
#include <nettle/hmac.h>
#include <nettle/memops.h>
#include <stdexcept>
#include <strings.h>
#include <sys/random.h>

namespace usage {
namespace {

constexpr std::size_t kMaxKnown = 64;
constexpr std::size_t kMaxDelayed = 256;
constexpr std::size_t kMaxPassword = 512;
constexpr auto kDelay = std::chrono::seconds(1);

// Between two hashes, whoever asks: many peers together can't take the processor either.
constexpr auto kCheckPause = std::chrono::milliseconds(100);

constexpr std::string_view kScheme = "Basic ";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos)
        return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

} // namespace

std::optional<std::string> basicPassword(std::string_view authorization) {
    if (authorization.size() < kScheme.size() ||
        strncasecmp(authorization.data(), kScheme.data(), kScheme.size()) != 0)
        return std::nullopt;
    const std::string_view encoded = trimmed(authorization.substr(kScheme.size()));
    if (encoded.size() > kMaxPassword)
        return std::nullopt;
    std::string decoded(BASE64_DECODE_LENGTH(encoded.size()), '\0');
    base64_decode_ctx context;
    base64_decode_init(&context);
    std::size_t length = decoded.size();
    if (base64_decode_update(&context, &length, reinterpret_cast<std::uint8_t *>(decoded.data()),
                             encoded.size(), encoded.data()) == 0 ||
        base64_decode_final(&context) == 0)
        return std::nullopt;
    decoded.resize(length);
    const std::size_t colon = decoded.find(':');
    if (colon == std::string::npos || decoded.find('\0') != std::string::npos)
        return std::nullopt;
    return decoded.substr(colon + 1);
}

PasswordGate::PasswordGate(std::string hash) : hash_(std::move(hash)) {
    if (getrandom(key_.data(), key_.size(), 0) != static_cast<ssize_t>(key_.size()))
        throw std::runtime_error("no random numbers from the kernel");
}

PasswordGate::Decision PasswordGate::judge(const std::string &peer, std::string_view authorization,
                                           Clock::time_point now) {
    if (hash_.empty())
        return {Verdict::kGranted};
    if (authorization.empty())
        return {Verdict::kDenied};
    const Digest digest = digestOf(authorization);
    const Known *known = find(digest);
    if (known != nullptr && known->granted)
        return {Verdict::kGranted};
    const auto own = delayed_.find(peer);
    if (own != delayed_.end() && now < own->second)
        return {Verdict::kWait, own->second};
    if (known == nullptr) {
        if (now < nextCheck_)
            return {Verdict::kWait, nextCheck_};
        nextCheck_ = now + kCheckPause;
        known = remember(digest, check(authorization));
    }
    if (!known->granted)
        delay(peer, now);
    return {known->granted ? Verdict::kGranted : Verdict::kDenied};
}

PasswordGate::Digest PasswordGate::digestOf(std::string_view text) const {
    hmac_sha256_ctx context;
    hmac_sha256_set_key(&context, key_.size(), key_.data());
    hmac_sha256_update(&context, text.size(), reinterpret_cast<const std::uint8_t *>(text.data()));
    Digest digest;
    hmac_sha256_digest(&context, digest.size(), digest.data());
    return digest;
}

const PasswordGate::Known *PasswordGate::find(const Digest &digest) {
    const auto found =
        std::ranges::find_if(known_, [&](const Known &known) { return known.digest == digest; });
    if (found == known_.end())
        return nullptr;
    known_.splice(known_.begin(), known_, found);
    return &known_.front();
}

bool PasswordGate::check(std::string_view authorization) const {
    const std::optional<std::string> password = basicPassword(authorization);
    if (!password)
        return false;
    const auto scratch = std::make_unique<crypt_data>();
    const char *hashed = crypt_r(password->c_str(), hash_.c_str(), scratch.get());
    return hashed != nullptr && strlen(hashed) == hash_.size() &&
           memeql_sec(hashed, hash_.data(), hash_.size()) != 0;
}

// The right password is never pushed out by wrong ones: they make room among themselves.
const PasswordGate::Known *PasswordGate::remember(const Digest &digest, bool granted) {
    if (known_.size() >= kMaxKnown) {
        const auto last = std::find_if(known_.rbegin(), known_.rend(),
                                       [](const Known &known) { return !known.granted; });
        known_.erase(last == known_.rend() ? std::prev(known_.end()) : std::prev(last.base()));
    }
    known_.push_front({digest, granted});
    return &known_.front();
}

void PasswordGate::delay(const std::string &peer, Clock::time_point now) {
    std::erase_if(delayed_, [&](const auto &entry) { return entry.second <= now; });
    if (delayed_.size() < kMaxDelayed)
        delayed_[peer] = now + kDelay;
}

} // namespace usage
