// The command line, the files and the dump.
#include "engine/database_files.h"
#include "engine/dump.h"
#include "engine/options.h"
#include "engine/scenario/scenario.h"
#include "scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace idpfwd {
namespace {

using testing::HasSubstr;

TEST(Options, BadUsageSaysWhatIsWrong) {
    const std::pair<std::vector<const char *>, const char *> cases[] = {
        {{}, "one of --scenario"},
        {{"--scenario", "a", "--capture", "b"}, "only one of"},
        {{"--scenario", "a", "--fast"}, "--fast is for --capture"},
        {{"--scenario", "a", "--forget", "0"}, "above 0"},
        {{"--interface", "a", "--gateway-mac", "02:00:00:00:00:0x"}, "no MAC address"},
        {{"--interface", "a", "--gateway-mac", "02-00-00-00-00-01"}, "no MAC address"},
        {{"--nothing"}, "unknown option '--nothing'"},
        {{"--fast=1"}, "'--fast=1' takes no value"},
    };
    for (auto [words, reason] : cases) {
        words.insert(words.begin(), "idpfwd");
        words.push_back(nullptr);
        const CommandLine line =
            parseCommandLine(static_cast<int>(words.size() - 1), const_cast<char **>(words.data()));
        EXPECT_EQ(line.leave, 2) << reason;
        EXPECT_THAT(line.text, HasSubstr(reason));
    }
}

TEST(DatabaseFiles, ReplacesAFileAsAWholeAndLeavesNothingBeside) {
    const Scratch scratch;
    const auto folder = scratch.path() / "new" / "folder";
    ASSERT_TRUE(writeWhole(folder, "a.db", "one\n"));
    ASSERT_TRUE(writeWhole(folder, "a.db", "two\n"));
    EXPECT_EQ(scratch.read("new/folder/a.db"), "two\n");
    EXPECT_EQ(static_cast<int>(std::filesystem::status(folder / "a.db").permissions()), 0644);

    std::filesystem::create_directories(folder / "b.db" / "in the way");
    EXPECT_FALSE(writeWhole(folder, "b.db", "x"));
    EXPECT_EQ(scratch.names("new/folder"), (std::vector<std::string>{"a.db", "b.db"}));
}

TEST(Dump, IsValidJsonWithExactNumbersWhateverTheNamesHold) {
    Scenario source(parseScenario(R"({"categories": {"3": "quote \" and \\"}, "steps": [{
        "users": {"a": {"mac": "02:00:00:00:00:0a"}},
        "set": [{"user": "a", "category": 3, "id": 7, "down": "18446744073709551615", "up": 5}]}]})"));
    auto users = source.tables.users();
    // No UTF-8, two bytes of one character, half of a surrogate pair, a character that is cut off.
    const std::string name = "x\1\"\xFF\xC3\xA4\xED\xA0\x80\xE2\x82";
    users[0].host_name[name.copy(users[0].host_name, name.size())] = '\0';
    source.tables.replace(users, source.tables.rows());
    const std::string text = dumpTables(source);
    EXPECT_THAT(text, HasSubstr(R"("x\u0001\"\u00ffä\u00ed\u00a0\u0080\u00e2\u0082")"));
    EXPECT_THAT(text, HasSubstr(R"("category": "quote \" and \\")"));
    EXPECT_THAT(text, HasSubstr(R"("down_bytes": 18446744073709551615, "up_bytes": 5,)"));
}

} // namespace
} // namespace idpfwd
