#include "http_rig.h"

#include "usage/http/http_auth.h"

namespace usage {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Verdict = PasswordGate::Verdict;

constexpr auto kRight = "Basic bWU6c2VjcmV0"; // me:secret
constexpr auto kWrong = "Basic bWU6d3Jvbmc="; // me:wrong
constexpr auto kAlsoWrong = "Basic bWU6bm8="; // me:no

class PasswordGateTest : public testing::Test {
  protected:
    Verdict judge(const char *value, const char *peer = "a") {
        return gate_.judge(peer, value, now_).verdict;
    }

    PasswordGate gate_{hashOf("secret")};
    PasswordGate::Clock::time_point now_{seconds(1000)};
};

TEST(BasicPassword, IsWhatFollowsTheFirstColon) {
    struct {
        const char *header;
        std::optional<std::string> password;
    } const rows[] = {
        {"Basic bWU6c2VjcmV0", "secret"}, {"basic   bWU6c2VjcmV0 ", "secret"},
        {"Basic OmE6Yg==", "a:b"},        {"Basic bWU6", ""},
        {"Basic", std::nullopt},          {"Basic ", std::nullopt},
        {"Bearer bWU6", std::nullopt},    {"Basic bWU", std::nullopt},
        {"Basic bWU=", std::nullopt},     {"Basic *!?", std::nullopt},
        {"Basic bWU6AGE=", std::nullopt},
    };
    for (const auto &[header, password] : rows)
        EXPECT_EQ(basicPassword(header), password) << header;
    EXPECT_EQ(basicPassword("Basic " + std::string(10000, 'A')), std::nullopt);
}

TEST_F(PasswordGateTest, MakesAPeerThatFailedWaitAndNobodyElse) {
    EXPECT_EQ(judge(kWrong), Verdict::kDenied);
    EXPECT_EQ(judge(kWrong), Verdict::kWait) << "the same wrong value again";
    now_ += milliseconds(999);
    EXPECT_EQ(judge(kRight), Verdict::kWait);
    EXPECT_EQ(judge(kAlsoWrong, "b"), Verdict::kDenied);
    now_ += milliseconds(1);
    EXPECT_EQ(judge(kWrong), Verdict::kDenied);
    now_ += seconds(1);
    EXPECT_EQ(judge(kRight), Verdict::kGranted);
}

TEST_F(PasswordGateTest, ManyPeersTogetherGetTenTriesASecond) {
    int judged = 0;
    for (int peer = 0; peer < 1000; ++peer) {
        const std::string value = "Basic " + std::to_string(1000000 + peer) + "=";
        judged += gate_.judge(std::to_string(peer), value, now_).verdict == Verdict::kWait ? 0 : 1;
        now_ += milliseconds(1);
    }
    EXPECT_EQ(judged, 10);
    now_ += seconds(1);
    EXPECT_EQ(judge(kRight), Verdict::kGranted);
    for (int peer = 0; peer < 200; ++peer) {
        now_ += seconds(2);
        judge(("Basic " + std::to_string(2000000 + peer) + "=").c_str(), "x");
    }
    EXPECT_EQ(judge(kRight, "x"), Verdict::kGranted) << "wrong ones pushed the right one out";
}

} // namespace
} // namespace usage
