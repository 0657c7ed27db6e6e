#include "gateway/engine/scratch.h"
#include "usage/answers/messages.h"
#include "usage/answers/metrics.h"
#include "usage/commands/setup.h"
#include "usage/http/http_auth.h"
#include "usage/page/page_files.h"
#include "usage/settings.h"
#include "usage/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace usage {
namespace {

using testing::HasSubstr;
using testing::Not;

class MetricsTest : public testing::Test {
  protected:
    Pair pair(const std::string &mac, const std::string &application, const std::string &category) {
        return {present_.directory.device(*parseMac(mac)).id,
                present_.directory.application({.category = category, .name = application})};
    }
    void sample(Traffic traffic) {
        ++rates_.number; // all in the same second
        rates_.traffic = std::move(traffic);
        metrics_.count(present_, rates_);
    }
    [[nodiscard]] std::string text() const { return metrics_.text(present_, status_); }

    Present present_;
    Rates rates_;
    Status status_;
    Metrics metrics_;
};

TEST_F(MetricsTest, SumsSamplesByDeviceAndCategoryEachOnce) {
    const Pair tube = pair("02:00:5e:00:00:11", "YouTube", "Media");
    const Pair music = pair("02:00:5e:00:00:11", "Spotify", "Media");
    present_.directory.device(*parseMac("02:00:5e:00:00:11")).ownName = "a \"quoted\" \\ name";
    sample({{tube, {10, 1}}, {music, {5, 0}}});
    metrics_.count(present_, rates_); // asked again before the next sample
    sample({{tube, {9007199254740993, 0}}, {Pair{}, {7, 7}}});
    EXPECT_THAT(text(), HasSubstr("traffic_usage_bytes_total{mac=\"02:00:5e:00:00:11\",category="
                                  "\"Media\",direction=\"down\"} 9007199254741008\n"));
    EXPECT_THAT(text(), HasSubstr("{mac=\"other\",category=\"other\",direction=\"up\"} 7\n"));
    EXPECT_THAT(text(), HasSubstr(R"(name="a \"quoted\" \\ name"} 1)"));
    EXPECT_THAT(text(), Not(HasSubstr("traffic_usage_lost")));
    status_.lost.packets = 3;
    EXPECT_THAT(text(), HasSubstr("traffic_usage_lost_packets_total 3\n"));
}

TEST_F(MetricsTest, KeepsEverySeriesAndPutsLateOnesTogether) {
    const Pair early = pair("02:00:5e:00:00:11", "YouTube", "Media");
    sample({{early, {1, 1}}});
    Traffic flood;
    for (int category = 0; category < 3000; ++category)
        flood[pair("02:00:5e:00:00:12", "x" + std::to_string(category), std::to_string(category))] =
            {1, 0};
    sample(std::move(flood));
    sample({{early, {1, 0}}});
    EXPECT_THAT(text(), HasSubstr("category=\"Media\",direction=\"down\"} 2\n"));
    EXPECT_THAT(text(), HasSubstr("{mac=\"other\",category=\"other\",direction=\"down\"} 1001\n"));
}

TEST_F(MetricsTest, PassPromtool) {
    if (std::system("command -v promtool >/dev/null") != 0)
        GTEST_SKIP() << "promtool (Debian's package prometheus) is not installed";
    sample({{pair("02:00:5e:00:00:11", "YouTube", "Media"), {1, 1}}});
    status_.lost = {1, 2, 3, 4};
    FILE *promtool = popen("promtool check metrics 2>&1", "w");
    ASSERT_NE(promtool, nullptr);
    fputs(text().c_str(), promtool);
    EXPECT_EQ(pclose(promtool), 0);
}

class SetupTest : public testing::Test {
  protected:
    int setUpWith(const std::string &typed, const std::string &listen = "192.0.2.1:8080") {
        std::istringstream in(typed);
        return setUp({"br0", file(), listen}, in, out_);
    }
    [[nodiscard]] std::string file() const { return folder_ / "sub/br0.json"; }

    Scratch folder_;
    std::ostringstream out_;
};

TEST_F(SetupTest, KeepsAHashThatGrantsThePasswordAndNothingElseChanges) {
    Settings before;
    before.messages = {"broker", 1884, "user", "secret"};
    std::filesystem::create_directory(folder_ / "sub");
    writeSettings(file(), before);
    ASSERT_EQ(setUpWith("correct horse\n"), 0) << out_.str();
    const Settings after = readSettings(file());
    EXPECT_EQ(after.listen, "192.0.2.1:8080");
    EXPECT_EQ(after.messages, before.messages);
    PasswordGate gate(after.passwordHash);
    const auto now = PasswordGate::Clock::now();
    // x:correct horse
    EXPECT_EQ(gate.judge("a", "Basic eDpjb3JyZWN0IGhvcnNl", now).verdict,
              PasswordGate::Verdict::kGranted);
    struct stat made {};
    ASSERT_EQ(stat(file().c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 07777U, 0640U);
    EXPECT_THAT(out_.str(), HasSubstr("clear text"));
}

TEST_F(SetupTest, TakesAFileWithoutAFolder) {
    const auto here = std::filesystem::current_path();
    std::filesystem::current_path(folder_.path());
    std::istringstream in("correct horse\n");
    EXPECT_EQ(setUp({"br0", "br0.json", "192.0.2.1:8080"}, in, out_), 0);
    std::filesystem::current_path(here);
    EXPECT_EQ(readSettings(folder_ / "br0.json").listen, "192.0.2.1:8080");
}

TEST_F(SetupTest, RefusesAndLeavesTheFileAlone) {
    ASSERT_EQ(setUpWith("correct horse\n"), 0);
    const Settings before = readSettings(file());
    for (const auto &[typed, listen] :
         {std::pair("short\n", "192.0.2.1:1"), {"", "192.0.2.1:1"}, {"correct horse\n", "nowhere"}})
        EXPECT_EQ(setUpWith(typed, listen), 1) << typed << listen;
    EXPECT_THAT(out_.str(), Not(HasSubstr("200 bytes"))) << "a failure is told elsewhere";
    EXPECT_EQ(setUpWith(std::string(201, 'x')), 1);
    EXPECT_EQ(setUpWith("correct horse\n", ""), 1) << "there is no br0 with an address";
    EXPECT_EQ(readSettings(file()), before);
    for (const char *damaged :
         {"", "{", "[]", R"({"listen": 5})", R"({"messages": {"port": "x"}})",
          R"({"messages": {"port": 67419}})", R"({"messages": {"port": 0}})"}) {
        std::ofstream(file()) << damaged;
        EXPECT_THROW(readSettings(file()), std::runtime_error) << damaged;
    }
    EXPECT_EQ(readSettings(folder_ / "none"), Settings());
}

TEST(PageFiles, FitTheirFirstLoadAndHaveTypesAndTags) {
    std::size_t bytes = 0;
    for (const PageFile &file : pageFiles()) {
        bytes += file.data.size();
        EXPECT_FALSE(file.type.empty()) << file.path;
        EXPECT_EQ(file.tag.size(), 18U) << file.path;
    }
    EXPECT_LE(bytes, 120U << 10U);
    ASSERT_TRUE(pageReply("/"));
    EXPECT_THAT(pageReply("/")->type, HasSubstr("text/html"));
    EXPECT_FALSE(pageReply("/index.html/.."));
}

TEST(MessageTexts, TellTodayAndAnnounceTwoSensorsForEachDevice) {
    const Scratch folder;
    constexpr Seconds kNow = 1795295880;
    Present present;
    const Store store({folder.path()}, present);
    Device &device = present.directory.device(*parseMac("02:00:5e:00:00:11"));
    device.hostName = "tv \"x\"";
    const Pair pair{device.id, present.directory.application({"Media", "YouTube"})};
    present.slots[periodAt(Level::kSlot, kNow).from][pair] = {1000, 10};
    const MessageTexts texts = messageTexts(present, store, "br-0", kNow);
    EXPECT_EQ(texts.at("traffic-usage/br-0/today/02005e000011"),
              R"({"name":"tv \"x\"","down":1000,"up":10})");
    EXPECT_THAT(texts.at("traffic-usage/br-0/today/all"), HasSubstr("\"down\":1000"));
    EXPECT_THAT(texts.at("homeassistant/sensor/traffic_usage_br_0_02005e000011/up/config"),
                HasSubstr(R"("state_topic":"traffic-usage/br-0/today/02005e000011")"));
    EXPECT_EQ(texts.size(), 6U);
}

} // namespace
} // namespace usage
