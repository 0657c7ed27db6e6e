// The program as it ships, with a real broker and with brokers that misbehave.
#include "broker_rig.h"
#include "usage/uplink/outbox.h"

#include <csignal>
#include <gmock/gmock.h>
#include <mosquitto.h>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>

namespace uplink {
namespace {

using testing::HasSubstr;

class UplinkProgram : public testing::Test {
  protected:
    void SetUp() override {
        if (!Broker::installed())
            GTEST_SKIP() << "mosquitto or openssl is not installed";
        mosquitto_lib_init();
        std::filesystem::create_directory(scratch_.path() / "spool");
        makeCertificates(scratch_, "operator", "localhost");
    }

    void configure(int port, const std::string &more = "") const {
        scratch_.write("uplink.conf",
                       "broker=localhost\nregion=eu\nrouter=r-1\nspread=0\nretry_first=1\n"
                       "retry_longest=1\nport=" +
                           std::to_string(port) + "\nca_file=" +
                           (scratch_.path() / "operator.pem").string() + "\n" + more);
    }

    [[nodiscard]] std::vector<std::string> command(bool once) const {
        const std::string folder = scratch_.path();
        std::vector<std::string> words = {
            UPLINK,    "--config",       folder + "/uplink.conf", "--spool", folder + "/spool",
            "--state", folder + "/state"};
        if (once)
            words.emplace_back("--once");
        return words;
    }

    [[nodiscard]] int once() const { return Program(scratch_, "said", command(true)).wait(); }

    // In place, as the daemon writes it; false while the one before was not taken.
    [[nodiscard]] bool writeReport(int number) const {
        const auto path = scratch_.path() / "spool/aws_traffic_usage_details.json";
        if (std::filesystem::exists(path))
            return false;
        std::ofstream file(path);
        file << "{\n\t\"numOfTrafficRecrod\":\t" << std::flush << number << "}";
        return true;
    }

    [[nodiscard]] std::int64_t waiting() const {
        return Outbox(scratch_.path() / "state", 1 << 20).waiting();
    }
    [[nodiscard]] std::string said() const { return scratch_.read("said"); }

    Scratch scratch_;
};

// What has arrived: each identity's only body, and each report's only identity.
struct Arrived {
    std::map<std::string, std::string> bodies;
    std::map<int, std::string> reports;
    std::set<std::string> outboxes;
};

Arrived collect(Listener &listener) {
    Arrived arrived;
    for (const auto &[topic, body] : listener.messages()) {
        EXPECT_EQ(topic, "usage/eu/r-1/report");
        const auto message = nlohmann::json::parse(body);
        const std::string outbox = message["outbox"];
        const std::string identity = outbox + " " + message["sequence"].dump();
        arrived.outboxes.insert(outbox);
        EXPECT_EQ(arrived.bodies.try_emplace(identity, body).first->second, body);
        const int report = message["report"]["numOfTrafficRecrod"];
        EXPECT_EQ(arrived.reports.try_emplace(report, identity).first->second, identity);
    }
    return arrived;
}

TEST_F(UplinkProgram, LosesAndAltersNothingHoweverOftenItIsKilled) {
    const Broker broker(scratch_, "operator");
    Listener listener(scratch_, "operator", broker.port());
    configure(broker.port());
    // The same waits each time; --gtest_random_seed has others.
    std::mt19937 random(static_cast<unsigned>(GTEST_FLAG_GET(random_seed)));
    int written = 0;
    for (int kills = 0; kills < 60; ++kills) {
        const std::string output = "said-" + std::to_string(kills);
        written += writeReport(written + 1) ? 1 : 0; // for it to find at its start
        const Program uplink(scratch_, output, command(false));
        const int goal = written + static_cast<int>(random() % 5);
        EXPECT_TRUE(eventually([&] {
            const bool signals = !scratch_.read(output).empty(); // are taken from here on
            if (written < goal && signals && writeReport(written + 1)) {
                ++written;
                uplink.signal(SIGUSR2);
            }
            return written >= goal;
        }));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 100'000));
    }
    EXPECT_EQ(once(), 0) << said();
    EXPECT_TRUE(std::filesystem::is_empty(scratch_.path() / "spool"));
    EXPECT_TRUE(eventually(
        [&] { return collect(listener).reports.size() >= static_cast<std::size_t>(written); }));
    const Arrived arrived = collect(listener);
    EXPECT_EQ(arrived.reports.size(), static_cast<std::size_t>(written));
    EXPECT_EQ(arrived.bodies.size(), arrived.reports.size());
    EXPECT_EQ(arrived.outboxes.size(), 1U);
    RecordProperty("written", written);
    RecordProperty("messages", static_cast<int>(listener.messages().size()));
}

TEST_F(UplinkProgram, GoesOnWhenTheBrokerIsBackAndEndsWhenTold) {
    configure(28'399); // nobody's
    Program uplink(scratch_, "said", command(false));
    ASSERT_TRUE(writeReport(1));
    ASSERT_TRUE(eventually(
        [this] { return said().find("Connection refused; 1 reports wait") != std::string::npos; }));
    const Broker broker(scratch_, "operator", 28'399);
    Listener listener(scratch_, "operator", broker.port());
    EXPECT_TRUE(eventually([&] { return collect(listener).reports.contains(1); }));
    EXPECT_EQ(once(), 1);
    EXPECT_THAT(said(), HasSubstr("cannot use the outbox in")); // it is the other one's
    EXPECT_EQ(std::filesystem::status(scratch_.path() / "state/outbox.db").permissions(),
              std::filesystem::perms{0600});
    ASSERT_TRUE(writeReport(2));
    uplink.signal(SIGUSR2);
    EXPECT_TRUE(eventually([&] { return collect(listener).reports.contains(2); }));
    uplink.signal(SIGTERM);
    EXPECT_EQ(uplink.wait(), 0);
}

TEST_F(UplinkProgram, KeepsItsReportsWhateverTheBrokerDoes) {
    const std::pair<const char *, const char *> rows[] = {
        {"silent", "the broker does not answer"},
        {"refuse", "not authorised"},
        {"hold", "the broker does not acknowledge"},
        {"close", "connection was lost"},
    };
    ASSERT_TRUE(writeReport(1));
    for (const auto &[behaviour, complaint] : rows) {
        SCOPED_TRACE(behaviour);
        const std::string certificate = scratch_.path() / "operator-server";
        const Program broker(
            scratch_, behaviour,
            {"python3", HOSTILE_BROKER, behaviour, certificate + ".pem", certificate + ".key"});
        ASSERT_TRUE(
            eventually([&] { return scratch_.read(behaviour).find('\n') != std::string::npos; }));
        configure(std::stoi(scratch_.read(behaviour)), "patience=1\n");
        EXPECT_EQ(once(), 1);
        EXPECT_THAT(said(), HasSubstr(complaint));
        EXPECT_EQ(waiting(), 1);
    }
    EXPECT_THAT(scratch_.read("hold"), HasSubstr("message"));
}

TEST_F(UplinkProgram, TellsNothingToABrokerThatIsNotTheRightOne) {
    makeCertificates(scratch_, "stranger", "localhost");
    makeCertificates(scratch_, "elsewhere", "elsewhere.example.net");
    ASSERT_TRUE(writeReport(1));
    for (const auto &[broker, trusted] :
         {std::pair{"stranger", "operator"}, {"elsewhere", "elsewhere"}}) {
        const Broker wrong(scratch_, broker);
        Listener listener(scratch_, broker, wrong.port(), false);
        configure(wrong.port());
        std::filesystem::rename(scratch_.path() / (std::string(trusted) + ".pem"),
                                scratch_.path() / "operator.pem");
        EXPECT_EQ(once(), 1);
        EXPECT_THAT(said(), HasSubstr("certificate verify failed"));
        EXPECT_EQ(waiting(), 1);
        EXPECT_TRUE(listener.messages().empty());
    }
}

TEST_F(UplinkProgram, SetsADamagedOutboxAsideAndDoesWithoutNothingElse) {
    const Broker broker(scratch_, "operator");
    Listener listener(scratch_, "operator", broker.port());
    EXPECT_EQ(once(), 2); // no configuration
    configure(broker.port());
    std::filesystem::create_directory(scratch_.path() / "state");
    scratch_.write("state/outbox.db", std::string(5000, 'x'));
    ASSERT_TRUE(writeReport(1));
    EXPECT_EQ(once(), 0);
    EXPECT_THAT(said(), HasSubstr("the outbox is damaged"));
    EXPECT_THAT(scratch_.names("state"), testing::ElementsAre("damaged-1-outbox.db", "outbox.db"));
    EXPECT_TRUE(eventually([&] { return collect(listener).reports.contains(1); }));
}

} // namespace
} // namespace uplink
