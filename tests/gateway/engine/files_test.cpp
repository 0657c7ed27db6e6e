// The command line, the files and the dump.
#include "engine/database_files.h"
#include "engine/dump.h"
#include "engine/options.h"
#include "engine/scenario/scenario.h"
#include "scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/resource.h>

namespace idpfwd {
namespace {

using testing::HasSubstr;

CommandLine parse(std::vector<const char *> words) {
    words.insert(words.begin(), "idpfwd");
    words.push_back(nullptr);
    return parseCommandLine(static_cast<int>(words.size() - 1), const_cast<char **>(words.data()));
}

TEST(Options, AreTakenUpToTheirLimits) {
    const Options all = parse({"--interface", "a",    "--gateway-mac", "02:00:00:00:00:0A",
                               "--forget",    "1",    "--memory",      "4096",
                               "--ring",      "1024", "--readers",     "16",
                               "--device",    "cuse", "--socket",      "s",
                               "--databases", "d",    "--dump",        "j"})
                            .options;
    EXPECT_EQ(all.source, SourceKind::kInterface);
    EXPECT_EQ(all.sourceName + all.socketPath + all.databases + all.dumpFile, "asdj");
    EXPECT_EQ(all.gatewayMac, (Mac{2, 0, 0, 0, 0, 10}));
    EXPECT_EQ(all.forgetSeconds, 1U);
    EXPECT_EQ(all.memory, std::min<std::uint64_t>(std::uint64_t{4096} << 20, SIZE_MAX));
    EXPECT_EQ(all.ring, std::size_t{1024} << 20);
    EXPECT_EQ(all.readers, 16U);
    EXPECT_EQ(all.device, DeviceKind::kCuse);
    EXPECT_TRUE(parse({"--capture", "a", "--fast"}).options.fast);
    for (const char *word : {"--help", "--version"})
        EXPECT_EQ(parse({word}).leave, 0);
}

TEST(Options, BadUsageSaysWhatIsWrong) {
    const std::pair<std::vector<const char *>, const char *> cases[] = {
        {{}, "one of --scenario"},
        {{"--scenario", "a", "--capture", "b"}, "only one of"},
        {{"--scenario", ""}, "not empty"},
        {{"--scenario", "a", "--fast"}, "--fast is for --capture"},
        {{"--scenario", "a", "--readers", "2"}, "--readers is for --interface"},
        {{"--scenario", "a", "--forget", "0"}, "above 0"},
        {{"--scenario", "a", "--memory", "4097"}, "from 1 to 4096"},
        {{"--scenario", "a", "--ring", "0"}, "from 1 to 1024"},
        {{"--interface", "a", "--readers", "17"}, "from 1 to 16"},
        {{"--interface", "a", "--readers", "1x"}, "from 1 to 16"},
        {{"--scenario", "a", "--device", "tape"}, "cuse or socket"},
        {{"--interface", "a", "--gateway-mac", "02:00:00:00:00:0x"}, "no MAC address"},
        {{"--interface", "a", "--gateway-mac", "02-00-00-00-00-01"}, "no MAC address"},
        {{"--nothing"}, "unknown option '--nothing'"},
        {{"-x"}, "unknown option '-x'"},
        {{"--scenario", "a", "b"}, "unexpected argument 'b'"},
        {{"--dump"}, "'--dump' needs a value"},
        {{"--fast=1"}, "'--fast=1' takes no value"},
    };
    for (const auto &[words, reason] : cases) {
        const CommandLine line = parse(words);
        EXPECT_EQ(line.leave, 2) << reason;
        EXPECT_THAT(line.text, HasSubstr(reason));
    }
}

TEST(DatabaseFiles, ReplacesAFileAsAWholeAndLeavesNothingBeside) {
    const Scratch scratch;
    const auto folder = scratch.path() / "new" / "folder";
    ASSERT_TRUE(writeWhole(folder, "a.db", "one\n"));
    ASSERT_TRUE(writeWhole(folder, "a.db", "two\n"));
    EXPECT_EQ(static_cast<int>(std::filesystem::status(folder / "a.db").permissions()), 0644);

    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full{.rlim_cur = 4096, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_FALSE(writeWhole(folder, "a.db", std::string(5000, 'x')));
    EXPECT_EQ(errno, EFBIG);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(scratch.read("new/folder/a.db"), "two\n");

    std::filesystem::create_directories(folder / "b.db" / "in the way");
    EXPECT_FALSE(writeWhole(folder, "b.db", "x"));
    EXPECT_EQ(scratch.names("new/folder"), (std::vector<std::string>{"a.db", "b.db"}));
}

TEST(Dump, IsTheWholeStateInJsonWithExactNumbers) {
    Scenario source(parseScenario(R"({"categories": {"3": "quote \" and \\"},
        "applications": {"Go": {"category": 3, "id": 7}}, "steps": [{
        "users": {"a": {"mac": "02:00:00:00:00:0a", "uid": 9, "ip": "10.0.0.1", "ipv6": "fe80::1"},
                  "b": {"mac": "02:00:00:00:00:0b", "uid": 8}},
        "set": [{"user": "a", "app": "Go", "down": "18446744073709551615", "up": 5,
                 "down_packets": 4, "up_packets": 3, "last": 2},
                {"user": "a", "category": 1, "id": 6, "last": 1}]}]})"));
    source.tables.addForgotten({.down_bytes = 20, .down_packets = 2});
    source.tables.addCapped(30);
    EXPECT_EQ(dumpTables(source), R"({"users": [
  {"uid": 9, "mac": "02:00:00:00:00:0a", "host_name": "a", "ipv4": "10.0.0.1", "ipv6": "fe80::1", "rows": [
    {"cat_id": 3, "app_id": 7, "category": "quote \" and \\", "application": "Go", "down_bytes": 18446744073709551615, "up_bytes": 5, "down_packets": 4, "up_packets": 3, "last": 2},
    {"cat_id": 1, "app_id": 6, "category": "", "application": "", "down_bytes": 0, "up_bytes": 0, "down_packets": 0, "up_packets": 0, "last": 1}]},
  {"uid": 8, "mac": "02:00:00:00:00:0b", "host_name": "b", "ipv4": "", "ipv6": "", "rows": []}],
 "overflow": {"users": 0, "rows": 0, "packets": 0, "bytes": 0},
 "refused": [],
 "forgotten": {"users": 0, "rows": 0, "packets": 2, "bytes": 20},
 "capped": {"packets": 1, "bytes": 30},
 "capture_drops": null}
)");
    for (std::uint8_t device = 0; device < 180; ++device)
        source.tables.addTraffic({4, device}, 1, 1, {.up_bytes = 60, .up_packets = 1}, {});
    const std::string text = dumpTables(source);
    EXPECT_THAT(text, HasSubstr(R"({"mac": "04:b3:00:00:00:00", "packets": 1, "bytes": 60},)"));
    EXPECT_THAT(text, testing::Not(HasSubstr(R"({"mac": "04:73:)"))) << "64 at most";
    EXPECT_THAT(text, HasSubstr(R"({"mac": "04:74:)"));
}

// What is no UTF-8 (too long a form, half of a surrogate pair, what is above the last character, a
// character that is cut off) is shown byte by byte.
TEST(Dump, IsValidUtf8WhateverTheNamesHold) {
    const std::pair<const char *, const char *> names[] = {
        {"\x1f \"\\", R"(\u001f \"\\)"},
        {"\x7f\xC2\x80\xDF\xBF", "\x7f\xC2\x80\xDF\xBF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF", "\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {"\xFF\x80\xC1\xBF", R"(\u00ff\u0080\u00c1\u00bf)"},
        {"\xE0\x9F\xBF", R"(\u00e0\u009f\u00bf)"},
        {"\xED\xA0\x80", R"(\u00ed\u00a0\u0080)"},
        {"\xF0\x8F\xBF\xBF", R"(\u00f0\u008f\u00bf\u00bf)"},
        {"\xF4\x90\x80\x80", R"(\u00f4\u0090\u0080\u0080)"},
        {"\xF5\x80\x80\x80", R"(\u00f5\u0080\u0080\u0080)"},
        {"\xE2\x82(\xE2\x82", R"(\u00e2\u0082(\u00e2\u0082)"},
    };
    Scenario source(parseScenario(R"({"steps": [{"generate": {"users": 11}}]})"));
    auto users = source.tables.users();
    for (std::size_t i = 0; i < std::size(names); ++i)
        strncpy(users[i].host_name, names[i].first, sizeof users[i].host_name);
    source.tables.replace(users, {});
    const std::string text = dumpTables(source);
    for (const auto &[name, shown] : names)
        EXPECT_THAT(text, HasSubstr(std::string("\"host_name\": \"") + shown + "\","));
}

} // namespace
} // namespace idpfwd
