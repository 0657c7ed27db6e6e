// The service as it ships, killed at seeded moments while an engine counts: not a byte of
// difference. KILLS says how often (200 takes some four minutes), SEED when.
#include "support/child.h"
#include "support/files.h"
#include "support/private_root.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <thread>

namespace {

using Json = nlohmann::json;
using rig::Child;
using rig::eventually;
using testing::HasSubstr;

const std::string kFolder = "/lib/router/";

std::string refusal;

unsigned long fromEnvironment(const char *name, unsigned long otherwise) {
    const char *value = getenv(name);
    return value != nullptr ? std::stoul(value) : otherwise;
}

bool says(const std::string &file, const char *text) {
    return rig::fileExists(file) && rig::readFile(file).find(text) != std::string::npos;
}

class KillTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!refusal.empty())
            GTEST_SKIP() << refusal;
        rig::resetPrivateRoot();
        ASSERT_EQ(rig::showProcesses(), ""); // a sanitizer reads its options there
    }
    void TearDown() override {
        service.reset();
        engine.reset();
        rig::hideProcesses();
    }

    void startEngine(const std::string &scenario) {
        rig::writeFile("/scenario.json", scenario);
        engine.emplace(
            launch("idpfwd",
                   {"--scenario", "/scenario.json", "--device", "socket", "--dump", "/dump.json"},
                   "", "/idpfwd"));
        ASSERT_TRUE(eventually([] { return says("/idpfwd", "idpfwd"); }));
    }
    void startService(const char *every = "1") {
        service.emplace(ofService("serve", {"--every", every, "--listen", "none"}, "/serve"));
    }
    int end(std::optional<Child> &child, int number) {
        child->signal(number);
        const int status = child->wait();
        child.reset();
        EXPECT_FALSE(says("/serve.err", "Sanitizer")) << rig::readFile("/serve.err");
        return status;
    }

    // Runs a command to its end.
    static int run(const char *command, const std::vector<std::string> &more = {}) {
        return ofService(command, more, "/command").wait();
    }
    static Child ofService(const char *command, std::vector<std::string> words,
                           const char *output) {
        words.insert(words.begin(), command);
        words.insert(words.end(), {"--state", "/var/lib/traffic-usage/br0", "--runtime",
                                   "/run/traffic-usage/br0"});
        return launch("traffic-usage", words, "/lib/router/libidpfw-shim.so", output);
    }
    static Child launch(const std::string &program, std::vector<std::string> words,
                        const char *preload, const char *output) {
        words.insert(words.begin(), kFolder + program);
        return Child(words, output,
                     {{"LD_LIBRARY_PATH", kFolder},
                      {"LD_PRELOAD", preload},
                      {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"}});
    }

    std::optional<Child> engine, service;
};

using Truth =
    std::map<std::pair<std::string, std::string>, std::pair<std::uint64_t, std::uint64_t>>;

Truth countedByEngine() {
    Truth truth;
    const Json dump = Json::parse(rig::readFile("/dump.json"));
    for (const Json &user : dump["users"]) {
        for (const Json &row : user["rows"])
            truth[{user["mac"], row["application"]}] = {row["down_bytes"], row["up_bytes"]};
    }
    return truth;
}

Truth shown(const Json &usage) {
    Truth truth;
    for (const Json &row : usage["rows"])
        truth[{row["device"]["mac"], row["application"]}] = {row["down"], row["up"]};
    return truth;
}

constexpr const char *kNames = R"({"categories": {"1": "Things"}, "applications": {
    "One": {"category": 1, "id": 1}, "Two": {"category": 1, "id": 2}, "Three": {"category": 1, "id": 3}},)";

} // namespace

TEST_F(KillTest, NotAByteIsLostOrCountedTwiceWheneverTheServiceIsKilled) {
    const auto kills = fromEnvironment("KILLS", 8);
    std::mt19937 random(fromEnvironment("SEED", 1));
    startEngine(
        kNames + std::string(R"("steps": [{"repeat": {"times": )") + std::to_string(20 * kills) +
        R"(, "every": 0.05}, "generate": {"users": 5, "apps": 3, "category": 1, "first_app": 1,
                   "down": 1000003, "up": 1009}}]})");
    for (unsigned long i = 0; i < kills; ++i) {
        startService();
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 1500));
        if (random() % 3 == 0)
            run("name", {"02:00:00:00:00:01", "round " + std::to_string(i)}); // commits
        EXPECT_EQ(end(service, SIGKILL), -SIGKILL);
    }
    ASSERT_TRUE(eventually([] { return says("/idpfwd", "finished"); }));
    startService();
    ASSERT_TRUE(eventually([] { return run("live", {"--count", "1"}) == 0; }));
    EXPECT_EQ(end(service, SIGTERM), 0);
    EXPECT_EQ(end(engine, SIGTERM), 0);

    ASSERT_EQ(run("show", {"--since", "1d", "--by", "device,application", "--format", "json"}), 0);
    const Json usage = Json::parse(rig::readFile("/command"));
    EXPECT_EQ(countedByEngine().size(), 15U);
    EXPECT_EQ(shown(usage), countedByEngine());
    EXPECT_EQ(usage["state"]["store"], "ok");
}

TEST_F(KillTest, CommandsSayWhatTheyCannotDo) {
    EXPECT_EQ(run("show"), 1); // neither a service nor a store
    startEngine(R"({"steps": [{"generate": {"users": 63, "apps": 512, "category": 1, "first_app": 1,
                                            "down": 1000, "up": 100}}]})");
    startService("60"); // once: it has all to answer for
    ASSERT_TRUE(eventually([] { return run("show") == 0; }));
    EXPECT_EQ(run("serve"), 1); // a second one
    EXPECT_THAT(rig::readFile("/command.err"), HasSubstr("in use by another service"));
    for (const auto &[command, more] :
         std::vector<std::pair<const char *, std::vector<std::string>>>{
             {"name", {"02:00:00:00:00", "x"}},
             {"show", {"--from", "yesterday"}},
             {"show", {"--by", "colour"}},
             {"show", {"--since", "1d", "--from", "2d"}},
             {"show", {"--top", "0"}},
             {"forget", {}},
             {"frobnicate", {}}})
        EXPECT_EQ(run(command, more), 2) << command;
    EXPECT_EQ(run("forget", {"02:ff:ff:ff:ff:ff"}), 1); // nobody knows it
    EXPECT_EQ(run("backup", {"/no/such/folder/copy"}), 1);

    // Everything that an engine can know, in one answer and in one file.
    ASSERT_EQ(run("show", {"--by", "device,application", "--format", "json"}), 0);
    const Json usage = Json::parse(rig::readFile("/command"));
    EXPECT_EQ(usage["rows"].size(), 63U * 512U);
    EXPECT_EQ(usage["total"]["down"], 63U * 512U * 1000U);
    ASSERT_EQ(run("backup", {"/copy/history.db"}), 1);
    std::filesystem::create_directory("/copy");
    ASSERT_EQ(run("backup", {"/copy/history.db"}), 0);
    EXPECT_EQ(run("export"), 0);
    EXPECT_EQ(std::ranges::count(rig::readFile("/command"), '\n'), 63 * 512);
    EXPECT_EQ(end(service, SIGTERM), 0);
    EXPECT_EQ(run("name", {"02:00:00:00:00:01", "x"}), 1); // nobody is there to change it
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();
    const char *build = getenv("BINARIES");
    const std::string binaries = build != nullptr ? build : BUILD_DIR;
    std::vector<rig::Program> programs;
    for (const char *name :
         {"traffic-usage", "idpfwd", "libidpfw-shim.so", "libnvram.so", "libnat.so"})
        programs.push_back({binaries + "/" + name, kFolder + name});
    refusal = rig::enterPrivateRoot(programs);
    if (!refusal.empty())
        refusal.insert(0, "no private root on this machine: ");
    const int result = RUN_ALL_TESTS();
    rig::leavePrivateRoot();
    return result;
}
