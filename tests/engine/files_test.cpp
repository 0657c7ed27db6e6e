// The command line, the files and the dump.
#include "engine/database_files.h"
#include "engine/dump.h"
#include "engine/options.h"
#include "engine/scenario.h"
#include "scratch.h"

#include <cJSON.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace idpfwd {
namespace {

CommandLine parse(std::vector<std::string> words) {
    words.insert(words.begin(), "idpfwd");
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    return parseCommandLine(static_cast<int>(words.size()), arguments.data());
}

TEST(Options, EveryOptionReachesItsField) {
    const auto [options, leave, text] =
        parse({"--capture", "x.pcap", "--fast", "--gateway-mac", "02:aB:00:00:00:01", "--forget",
               "5", "--databases=d", "--device", "socket", "--socket", "s", "--dump", "j"});
    EXPECT_FALSE(leave) << text;
    EXPECT_EQ(options.source, SourceKind::kCapture);
    EXPECT_EQ(options.sourceName, "x.pcap");
    EXPECT_TRUE(options.fast);
    EXPECT_EQ(options.gatewayMac, (Mac{2, 0xAB, 0, 0, 0, 1}));
    EXPECT_EQ(options.forgetSeconds, 5U);
    EXPECT_EQ(options.databases, "d");
    EXPECT_EQ(options.device, DeviceKind::kSocket);
    EXPECT_EQ(options.socketPath, "s");
    EXPECT_EQ(options.dumpFile, "j");
}

TEST(Options, BadUsageSaysWhatIsWrong) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "one of --scenario"},
        {{"--scenario", "a", "--capture", "b"}, "only one of"},
        {{"--scenario", ""}, "not empty"},
        {{"--scenario"}, "'--scenario' needs a value"},
        {{"--scenario", "a", "--fast"}, "--fast is for --capture"},
        {{"--scenario", "a", "b"}, "unexpected argument 'b'"},
        {{"--scenario", "a", "--device", "usb"}, "not 'usb'"},
        {{"--scenario", "a", "--forget", "0"}, "above 0"},
        {{"--scenario", "a", "--forget", "99999999999"}, "above 0"},
        {{"--scenario", "a", "--forget", "7s"}, "above 0"},
        {{"--interface", "a", "--gateway-mac", "02:00:00:00:00"}, "no MAC address"},
        {{"--interface", "a", "--gateway-mac", "02:00:00:00:00:0x"}, "no MAC address"},
        {{"--interface", "a", "--gateway-mac", "02-00-00-00-00-01"}, "no MAC address"},
        {{"--nothing"}, "unknown option '--nothing'"},
        {{"-xy"}, "unknown option '-x'"},
        {{"--fast=1"}, "'--fast=1' takes no value"},
    };
    for (const auto &[words, reason] : cases) {
        const CommandLine line = parse(words);
        EXPECT_EQ(line.leave, 2) << reason;
        EXPECT_THAT(line.text, testing::HasSubstr(reason));
    }
    EXPECT_EQ(parse({"--help"}).leave, 0);
    EXPECT_THAT(parse({"--version"}).text, testing::StartsWith("idpfwd "));
}

TEST(DatabaseFiles, ReplacesAFileAsAWholeAndLeavesNothingBeside) {
    const Scratch scratch;
    const auto folder = scratch.path() / "new" / "folder";
    ASSERT_TRUE(writeWhole(folder, "a.db", "one\n"));
    ASSERT_TRUE(writeWhole(folder, "a.db", "two\n"));
    EXPECT_EQ(scratch.read("new/folder/a.db"), "two\n");
    EXPECT_EQ(scratch.names("new/folder"), std::vector<std::string>{"a.db"});
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(folder / "a.db").permissions(),
              perms::owner_read | perms::owner_write | perms::group_read | perms::others_read);

    std::filesystem::create_directories(folder / "b.db" / "in the way");
    EXPECT_FALSE(writeWhole(folder, "b.db", "x"));
    EXPECT_EQ(scratch.names("new/folder").size(), 2U);
    EXPECT_FALSE(writeWhole(folder / "a.db", "c.db", "x")) << "a file where the folder should be";
}

TEST(Dump, IsValidJsonWithExactNumbersWhateverTheNamesHold) {
    Scenario source(parseScenario(R"({"categories": {"3": "quote \" and \\"}, "steps": [{
        "users": {"a": {"mac": "02:00:00:00:00:0a", "host_name": "x\u0001\""}},
        "set": [{"user": "a", "category": 3, "id": 7, "down": "18446744073709551615", "up": 5}]}]})"));
    auto users = source.tables.users();
    users[0].host_name[3] = '\xFF'; // no UTF-8
    users[0].host_name[4] = '\xC3'; // two bytes of one character
    users[0].host_name[5] = '\xA4';
    users[0].host_name[6] = '\xED'; // half of a surrogate pair
    users[0].host_name[7] = '\xA0';
    users[0].host_name[8] = '\x80';
    source.tables.replace(users, source.tables.rows());
    const std::string text = dumpTables(source);
    EXPECT_THAT(text, testing::HasSubstr("\"down_bytes\": 18446744073709551615, \"up_bytes\": 5,"));

    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(cJSON_Parse(text.c_str()),
                                                               cJSON_Delete);
    ASSERT_NE(json, nullptr) << text;
    const cJSON *user = cJSON_GetArrayItem(cJSON_GetObjectItem(json.get(), "users"), 0);
    EXPECT_STREQ(cJSON_GetObjectItem(user, "mac")->valuestring, "02:00:00:00:00:0a");
    EXPECT_STREQ(cJSON_GetObjectItem(user, "host_name")->valuestring,
                 "x\x01\"\xC3\xBF\xC3\xA4\xC3\xAD\xC2\xA0\xC2\x80");
    const cJSON *row = cJSON_GetArrayItem(cJSON_GetObjectItem(user, "rows"), 0);
    EXPECT_STREQ(cJSON_GetObjectItem(row, "category")->valuestring, "quote \" and \\");
    EXPECT_EQ(cJSON_GetObjectItem(row, "app_id")->valueint, 7);
}

} // namespace
} // namespace idpfwd
