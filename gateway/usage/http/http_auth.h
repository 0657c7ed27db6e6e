// HTTP Basic: which requests bring the password. Time is passed in, nothing here waits.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace usage {

// The password of an Authorization header of the scheme Basic, whatever the user's name; none when
// it is another scheme or no base64.
std::optional<std::string> basicPassword(std::string_view authorization);

// Judges values of the Authorization header. A value is hashed once, and then remembered as a keyed
// digest; wrong ones too, so that a page that goes on asking with an old password costs no hashing.
class PasswordGate {
  public:
    using Clock = std::chrono::steady_clock;

    enum class Verdict { kGranted, kDenied, kWait };
    struct Decision {
        Verdict verdict;
        Clock::time_point again{}; // with kWait: ask again then
    };

    // A hash of crypt(3); an empty one grants everything.
    explicit PasswordGate(std::string hash);

    // Of a peer (any key) with this header's value, "" for none. After a failed try the same peer's
    // next one waits for a second, and nobody else's; the right password, once known, never waits.
    Decision judge(const std::string &peer, std::string_view authorization, Clock::time_point now);

  private:
    using Digest = std::array<std::uint8_t, 32>;
    struct Known {
        Digest digest;
        bool granted;
    };

    [[nodiscard]] Digest digestOf(std::string_view text) const;
    const Known *find(const Digest &digest);
    bool check(std::string_view authorization) const;
    const Known *remember(const Digest &digest, bool granted);
    void delay(const std::string &peer, Clock::time_point now);

    std::string hash_;
    std::array<std::uint8_t, 32> key_{};
    std::list<Known> known_; // latest use first
    std::map<std::string, Clock::time_point> delayed_;
    Clock::time_point nextCheck_{};
};

} // namespace usage
