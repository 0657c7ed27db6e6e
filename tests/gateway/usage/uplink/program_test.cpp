// The program as it ships, with a real broker and with brokers that misbehave.
#include "gateway/engine/scratch.h"
#include "support/child.h"
#include "support/loopback.h"
#include "usage/uplink/outbox.h"

#include <csignal>
#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <sstream>
#include <thread>

namespace uplink {
namespace {

using rig::Child;
using rig::eventually;
using testing::HasSubstr;

class UplinkProgram : public testing::Test {
  protected:
    void SetUp() override {
        setenv("PATH", "/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
        if (std::system("command -v mosquitto mosquitto_sub openssl >/dev/null") != 0)
            GTEST_SKIP() << "mosquitto, mosquitto-clients or openssl is not installed";
        std::filesystem::create_directory(scratch_ / "spool");
        makeCertificate("operator", "localhost");
    }

    // NAME.pem, which is its own authority, and NAME.key.
    void makeCertificate(const std::string &name, const std::string &host) const {
        const std::string file = scratch_ / name;
        ASSERT_EQ(std::system(("exec openssl req -x509 -newkey ec -pkeyopt "
                               "ec_paramgen_curve:prime256v1 -nodes -keyout " +
                               file + ".key -out " + file + ".pem -days 2 -subj /CN=" + host +
                               " -addext subjectAltName=DNS:" + host + " 2>/dev/null")
                                  .c_str()),
                  0);
    }

    // mosquitto at port_, with the certificate of that name.
    Child broker(const std::string &name = "operator") const {
        const std::string file = scratch_ / name;
        return Child({"mosquitto", "-c",
                      scratch_.write("mosquitto.conf",
                                     "listener " + std::to_string(port_) + " 127.0.0.1\ncertfile " +
                                         file + ".pem\nkeyfile " + file +
                                         ".key\nallow_anonymous true\npersistence false\n"
                                         "max_queued_messages 0\nuser root\n")},
                     scratch_ / "mosquitto");
    }

    // Gets all messages from now on, "topic body", into "heard".
    Child listener(const std::string &name = "operator") const {
        const std::string subscribe = "exec mosquitto_sub -p " + std::to_string(port_) +
                                      " --cafile " + (scratch_ / (name + ".pem")).string() +
                                      " --insecure -c -i listener -q 1 -t '#' -F '%t %p'";
        EXPECT_TRUE(eventually([&] { // -E ends it when it has subscribed
            return Child({"sh", "-c", subscribe + " -E"}, scratch_ / "subscribed").wait() == 0;
        }));
        return Child({"sh", "-c", subscribe}, scratch_ / "heard");
    }

    void configure(const std::string &more = "", const std::string &authority = "operator") const {
        scratch_.write("uplink.conf",
                       "broker=localhost\nregion=eu\nrouter=r-1\nspread=0\nretry_first=1\n"
                       "retry_longest=1\nport=" +
                           std::to_string(port_) +
                           "\nca_file=" + (scratch_ / (authority + ".pem")).string() + "\n" + more);
    }

    [[nodiscard]] Child uplink(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {UPLINK, "--config", scratch_ / "uplink.conf", "--spool",
                                         scratch_ / "spool", "--state", scratch_ / "state"});
        return Child(options, scratch_ / "said");
    }
    [[nodiscard]] int once() const { return uplink({"--once"}).wait(); }
    [[nodiscard]] std::string said() const { return scratch_.read("said.err"); }

    // In place, as the daemon writes it; false while the one before was not taken.
    [[nodiscard]] bool writeReport(int number) const {
        const auto path = scratch_ / "spool/aws_traffic_usage_details.json";
        if (std::filesystem::exists(path))
            return false;
        std::ofstream file(path);
        file << "{\n\t\"numOfTrafficRecrod\":\t" << std::flush << number << "}";
        return true;
    }

    [[nodiscard]] std::int64_t waiting() const {
        return Outbox(scratch_ / "state", 1 << 20).waiting();
    }

    // What has arrived: each identity's only body, and each report's only identity.
    struct Arrived {
        std::map<std::string, std::string> bodies;
        std::map<int, std::string> reports;
        std::set<std::string> outboxes;
    };

    [[nodiscard]] Arrived arrived() const {
        Arrived all;
        std::istringstream heard(scratch_.read("heard"));
        std::string topic, body;
        while (heard >> topic && std::getline(heard, body) && !heard.eof()) { // a whole line
            EXPECT_EQ(topic, "usage/eu/r-1/report");
            const auto message = nlohmann::json::parse(body);
            all.outboxes.insert(message["outbox"]);
            const std::string identity = message["outbox"].dump() + message["sequence"].dump();
            EXPECT_EQ(all.bodies.try_emplace(identity, body).first->second, body);
            const int report = message["report"]["numOfTrafficRecrod"];
            EXPECT_EQ(all.reports.try_emplace(report, identity).first->second, identity);
        }
        return all;
    }
    [[nodiscard]] bool arrives(int report) const {
        return eventually([&] { return arrived().reports.contains(report); });
    }

    Scratch scratch_;
    int port_ = rig::freePort();
};

TEST_F(UplinkProgram, LosesAndAltersNothingHoweverOftenItIsKilled) {
    const Child serving = broker(), listening = listener();
    configure();
    // The same waits each time; --gtest_random_seed has others.
    std::mt19937 random(static_cast<unsigned>(GTEST_FLAG_GET(random_seed)));
    int written = 0;
    for (int kills = 0; kills < 60; ++kills) {
        written += writeReport(written + 1) ? 1 : 0; // for it to find at its start
        scratch_.write("said.err", "");
        const Child killed = uplink();
        const int goal = written + static_cast<int>(random() % 5);
        EXPECT_TRUE(eventually([&] {
            const bool signals = !said().empty(); // are taken from here on
            if (written < goal && signals && writeReport(written + 1)) {
                ++written;
                killed.signal(SIGUSR2);
            }
            return written >= goal;
        }));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 100'000));
    }
    EXPECT_EQ(once(), 0) << said();
    EXPECT_TRUE(std::filesystem::is_empty(scratch_ / "spool"));
    EXPECT_TRUE(arrives(written));
    const Arrived all = arrived();
    EXPECT_EQ(all.reports.size(), static_cast<std::size_t>(written));
    EXPECT_EQ(all.bodies.size(), all.reports.size());
    EXPECT_EQ(all.outboxes.size(), 1U);
}

TEST_F(UplinkProgram, GoesOnWhenTheBrokerIsBackAndEndsWhenTold) {
    configure();
    Child running = uplink();
    ASSERT_TRUE(writeReport(1));
    ASSERT_TRUE(eventually(
        [this] { return said().find("Connection refused; 1 reports wait") != std::string::npos; }));
    const Child serving = broker(), listening = listener();
    EXPECT_TRUE(arrives(1));
    EXPECT_EQ(once(), 1);
    EXPECT_THAT(said(), HasSubstr("cannot use the outbox in")); // it is the other one's
    EXPECT_EQ(std::filesystem::status(scratch_ / "state/outbox.db").permissions(),
              std::filesystem::perms{0600});
    ASSERT_TRUE(writeReport(2));
    running.signal(SIGUSR2);
    EXPECT_TRUE(arrives(2));
    running.signal(SIGTERM);
    EXPECT_EQ(running.wait(), 0);
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
        const Child serving({"python3", HOSTILE_BROKER, behaviour, scratch_ / "operator.pem",
                             scratch_ / "operator.key"},
                            scratch_ / behaviour);
        ASSERT_TRUE(
            eventually([&] { return scratch_.read(behaviour).find('\n') != std::string::npos; }));
        port_ = std::stoi(scratch_.read(behaviour));
        configure("patience=1\n");
        EXPECT_EQ(once(), 1);
        EXPECT_THAT(said(), HasSubstr(complaint));
        EXPECT_EQ(waiting(), 1);
    }
    EXPECT_THAT(scratch_.read("hold"), HasSubstr("message"));
}

TEST_F(UplinkProgram, TellsNothingToABrokerThatIsNotTheRightOne) {
    makeCertificate("stranger", "localhost");
    makeCertificate("elsewhere", "elsewhere.example.net");
    ASSERT_TRUE(writeReport(1));
    for (const auto &[name, trusted] :
         {std::pair{"stranger", "operator"}, {"elsewhere", "elsewhere"}}) {
        const Child wrong = broker(name), listening = listener(name);
        configure("", trusted);
        EXPECT_EQ(once(), 1);
        EXPECT_THAT(said(), HasSubstr("certificate verify failed"));
        EXPECT_EQ(waiting(), 1);
        EXPECT_EQ(scratch_.read("heard"), "");
    }
}

TEST_F(UplinkProgram, SetsADamagedOutboxAsideAndDoesWithoutNothingElse) {
    const Child serving = broker(), listening = listener();
    EXPECT_EQ(once(), 2); // no configuration
    configure();
    std::filesystem::create_directory(scratch_ / "state");
    scratch_.write("state/outbox.db", std::string(5000, 'x'));
    ASSERT_TRUE(writeReport(1));
    EXPECT_EQ(once(), 0);
    EXPECT_THAT(said(), HasSubstr("the outbox is damaged"));
    EXPECT_THAT(scratch_.names("state"), testing::ElementsAre("damaged-1-outbox.db", "outbox.db"));
    EXPECT_TRUE(arrives(1));
}

} // namespace
} // namespace uplink
