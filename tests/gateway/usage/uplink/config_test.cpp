#include "usage/uplink/config.h"

#include "gateway/engine/scratch.h"
#include "usage/uplink/options.h"

#include <gmock/gmock.h>
#include <sstream>

namespace uplink {
namespace {

using testing::HasSubstr;

constexpr const char *kLeast = "broker=b\nregion=eu\nrouter=r-1\n";

Config parse(const std::string &text) {
    std::istringstream stream(text);
    return parseConfig(stream, "c");
}

std::string refusal(const std::string &text) {
    try {
        parse(text);
    } catch (const ConfigError &error) {
        return error.what();
    }
    return "";
}

TEST(UplinkConfig, TakesEverySetting) {
    const Config config = parse(
        "# comment\n\n\tbroker = "
        "mqtt.example.net\r\nport=1\nregion=eu-1\nrouter=r_1\nusername=u=1\n"
        "password_file=p q\nca_file=/ca\ncertificate_file=/c\nkey_file=/k\noutbox_limit=512K\n"
        "spread=0\nretry_first=1\nretry_longest=86400\npatience=7");
    EXPECT_EQ(config.broker, "mqtt.example.net");
    EXPECT_EQ(config.port, 1);
    EXPECT_EQ(config.region + " " + config.router, "eu-1 r_1");
    EXPECT_EQ(config.username + " " + config.password, "u=1 p q");
    EXPECT_EQ(config.caFile + config.certificateFile + config.keyFile, "/ca/c/k");
    EXPECT_EQ(config.outboxLimit, 524'288);
    EXPECT_EQ((config.spread + config.retryFirst + config.retryLongest + config.patience).count(),
              86'408);
    EXPECT_EQ(parse(std::string(kLeast) + "outbox_limit=1024M").outboxLimit, 1 << 30);
}

TEST(UplinkConfig, RefusesWhatItCanNotMean) {
    const struct {
        std::string lines;
        const char *said;
    } rows[] = {
        {"x", "c:4: the line is not 'key = value'"},
        {"# comment\nbrokers=b", "c:5: the line has the unknown key 'brokers'"},
        {"router=r", "c:4: the line repeats 'router'"},
        {"username= ", "gives 'username' no value"},
        {"port=0", "'port' needs a whole number from 1 to 65535"},
        {"port=65536", "'port' needs"},
        {"port=1x", "'port' needs"},
        {"port=-1", "'port' needs"},
        {"outbox_limit=511K", "'outbox_limit' needs a size"},
        {"outbox_limit=1025M", "'outbox_limit' needs a size"},
        {"outbox_limit=9223372036854775807K", "'outbox_limit' needs a size"},
        {"outbox_limit=1G", "'outbox_limit' needs a size"},
        {"retry_first=0", "'retry_first' needs"},
        {"spread=86401", "'spread' needs"},
        {"key_file=k", "both or none"},
        {"password_file=p", "needs a 'username'"},
        {"retry_first=60\nretry_longest=59", "below 'retry_first'"},
    };
    for (const auto &row : rows)
        EXPECT_THAT(refusal(kLeast + row.lines), HasSubstr(row.said)) << row.lines;
    EXPECT_THAT(refusal(""), HasSubstr("no broker is configured"));
    EXPECT_THAT(refusal("broker=b\nregion=eu"), HasSubstr("'region' and 'router' are needed"));
    for (const std::string level : {"a/b", "+", "#", "a.b", "a b", "a\"b", "\xc3\xa4"})
        EXPECT_THAT(refusal("router=" + level), HasSubstr("may have letters")) << level;
    EXPECT_EQ(refusal("broker=b\nregion=eu\nrouter=" + std::string(64, 'r')), "");
    EXPECT_NE(refusal("broker=b\nregion=eu\nrouter=" + std::string(65, 'r')), "");
}

TEST(UplinkConfig, TakesThePasswordOutOfItsFileAndMissesFiles) {
    const Scratch scratch;
    const std::string password = scratch.write("password", "secret word\nmore\n");
    const std::string credentials = std::string(kLeast) + "username=u\npassword_file=";
    EXPECT_EQ(loadConfig(scratch.write("c", credentials + password)).password, "secret word");
    scratch.write("password", "\n");
    EXPECT_THROW(loadConfig(scratch.path() / "c"), ConfigError);
    scratch.write("c", std::string(kLeast) + "ca_file=/none/ca.pem");
    EXPECT_THROW(loadConfig(scratch.path() / "c"), ConfigError);
    EXPECT_THROW(loadConfig("/none/uplink.conf"), ConfigError);
}

TEST(UplinkConfig, TheExampleHasEverySettingWithItsDefault) {
    std::string example = Scratch().read(EXAMPLE_CONFIG);
    EXPECT_THAT(refusal(example), HasSubstr("no broker is configured"));
    for (std::size_t at = 0; (at = example.find("\n#", at)) != std::string::npos; ++at)
        if (example.compare(at + 2, 1, " ") != 0)
            example.erase(at + 1, 1);
    const Config config = parse(example);
    const Config usual = parse(kLeast);
    EXPECT_EQ(config.port, usual.port);
    EXPECT_EQ(config.outboxLimit, usual.outboxLimit);
    EXPECT_EQ(config.spread, usual.spread);
    EXPECT_EQ(config.retryFirst, usual.retryFirst);
    EXPECT_EQ(config.retryLongest, usual.retryLongest);
    EXPECT_EQ(config.patience, usual.patience);
    EXPECT_NE(config.keyFile + config.password, "");
}

TEST(UplinkOptions, AreTakenOrRefused) {
    const auto leave = [](std::vector<const char *> words) {
        words.insert(words.begin(), "aws_json");
        const int count = static_cast<int>(words.size());
        words.push_back(nullptr);
        return parseCommandLine(count, const_cast<char **>(words.data()));
    };
    const Options options = leave({"--config", "c", "--spool=s", "--state", "t", "--once"}).options;
    EXPECT_EQ(options.config + options.spool + options.state, "cst");
    EXPECT_TRUE(options.once);
    EXPECT_FALSE(leave({}).options.once);
    EXPECT_EQ(leave({"--help"}).leave, 0);
    EXPECT_EQ(leave({"--version"}).leave, 0);
    for (const auto &words : std::vector<std::vector<const char *>>{
             {"--none"}, {"-x"}, {"--spool"}, {"--spool="}, {"--once=1"}, {"word"}})
        EXPECT_EQ(leave(words).leave, 2) << words[0];
}

} // namespace
} // namespace uplink
