// What is typed or configured: options, environment, built-in statements.
#include "ingest/options.h"
#include "ingest/statements.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fleet {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

CommandLine parse(std::vector<const char *> words) {
    words.insert(words.begin(), "fleet-ingest");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    CommandLine line = parseCommandLine(static_cast<int>(words.size()), words.data());
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    return line;
}

TEST(Options, ComeFromTheEnvironmentUnlessTheyAreTyped) {
    setenv("FLEET_BUFFER", "tls://a:4222", 1);
    setenv("FLEET_BUFFER_PASSWORD", "secret", 1);
    setenv("FLEET_STORE", "http://a:8123,http://b:8123", 1);
    const CommandLine line =
        parse({"ingest", "--plain-devices", "--buffer", "tls://c:4222", "--lag-limit", "5"});
    for (const char *name : {"FLEET_BUFFER", "FLEET_BUFFER_PASSWORD", "FLEET_STORE"})
        unsetenv(name);
    EXPECT_EQ(line.leave, std::nullopt);
    EXPECT_EQ(line.options.command, Command::kIngest);
    EXPECT_EQ(line.options.buffer.servers, "tls://c:4222");
    EXPECT_EQ(line.options.buffer.password, "secret");
    EXPECT_THAT(line.options.stores, ElementsAre("http://a:8123", "http://b:8123"));
    EXPECT_EQ(line.options.mostWaiting, 5U);
}

TEST(Options, ThatMakeNoSenseAreRefused) {
    const std::vector<std::vector<const char *>> lines = {
        {},
        {"drop"},
        {"rollup"}, // which store?
        {"setup", "--store", "http://a"},
        {"setup", "--store", "http://a", "--buffer", "nats://a", "--copies", "0"},
        {"setup", "--store", "http://a", "--buffer", "nats://a", "--buffer-bytes", "-1"},
        {"ingest", "--store", "http://a", "--buffer", "nats://a"}, // devices: hashed or plain?
        {"ingest", "--store", "http://a", "--buffer", "nats://a", "--plain-devices",
         "--device-key-file", "k"},
        {"retain", "--store", "http://a"},
        {"retain", "--store", "http://a", "0"},
        {"rollup", "--store", "http://a", "2026-11-21", "2026-11-22"},
    };
    for (const auto &words : lines)
        EXPECT_EQ(parse(words).leave, 2) << (words.empty() ? "" : words.back());
    testing::internal::CaptureStderr();
    const char *misspelt[] = {"fleet-ingest", "rolup"};
    EXPECT_EQ(parseCommandLine(2, misspelt).leave, 2);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("rolup"));
    EXPECT_EQ(parse({"--version"}).leave, 0);
    EXPECT_EQ(parse({"retain", "--help"}).leave, 0);
    EXPECT_EQ(parse({"retain", "--store", "http://a", "13"}).options.months, 13);
}

TEST(Statements, AreSplitAtSemicolonsThatEndALine) {
    EXPECT_THAT(
        statementsOf("-- a comment; with one\nCREATE a\n  (b);\n\n-- another\nDROP ';' c;\n"),
        ElementsAre("CREATE a\n  (b)\n", "DROP ';' c\n"));
    EXPECT_TRUE(statementsOf("").empty());
    for (const std::string &statement : statementsOf(kTables))
        EXPECT_THAT(statement, HasSubstr("IF NOT EXISTS")) << "repeating must do no harm";
    EXPECT_EQ(statementsOf(kQuestions).size() % 2, 0U); // each view is dropped and made
}

TEST(Statements, TakeADayThatLooksLikeOne) {
    EXPECT_TRUE(isDay("2026-11-21"));
    for (const char *text : {"", "2026-11-2", "2026-11-211", "2026/11/21", "today", "2026-11-2'"})
        EXPECT_FALSE(isDay(text)) << text;
    EXPECT_THAT(rollupStatement("2026-11-21", 7), HasSubstr("WHERE day = toDate('2026-11-21')"));
    EXPECT_THAT(rollupStatement("2026-11-21", 7), HasSubstr(", 7 FROM"));
}

} // namespace
} // namespace fleet
