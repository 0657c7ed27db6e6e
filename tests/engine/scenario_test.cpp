#include "engine/scenario.h"

#include "engine/requests.h"
#include "scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <thread>

namespace idpfwd {
namespace {

using testing::HasSubstr;

Reply ask(Source &source, std::uint8_t nr, std::uint8_t op, std::uint32_t capacity = 2'000'000) {
    const CallerHeader header{
        .magic = 191, .nr = nr, .op = op, .outAddress = 1, .outCapacity = capacity};
    return serve(0xC02CBF00U + nr, header, {}, source);
}

template <typename Record>
std::vector<Record> records(const Reply &reply) {
    std::vector<Record> list(reply.output.size() / sizeof(Record));
    if (!list.empty())
        memcpy(list.data(), reply.output.data(), list.size() * sizeof(Record));
    return list;
}

std::vector<devid_user_entry> askUsers(Source &source) {
    return records<devid_user_entry>(ask(source, 10, 1));
}

std::vector<devid_app_rate_entry> askRows(Source &source) {
    return records<devid_app_rate_entry>(ask(source, 12, 1));
}

std::vector<std::uint64_t> downBytes(Source &source) {
    std::vector<std::uint64_t> bytes;
    for (const auto &row : askRows(source))
        bytes.push_back(row.down_accl_byte);
    return bytes;
}

TEST(Scenario, AUserCarriesEverythingThatTheFileSays) {
    Scenario source(parseScenario(R"({
        "devices": {"phone": {"vendor_id": 12, "os_id": 2, "class_id": 3, "type_id": 4,
                              "dev_id": 5, "family_id": 6}},
        "steps": [{"users": {
            "first": {"mac": "02:00:00:00:00:0f", "ip": "192.168.1.9", "ipv6": "fe80::1",
                      "device": "phone", "type_id": 99, "seen": 1000},
            "second": {"mac": "02:00:00:00:00:02", "host_name": "", "available": 0, "uid": 1}}}]})"));
    const auto users = askUsers(source);
    ASSERT_EQ(users.size(), 2U);
    EXPECT_EQ(users[0].uid, 1);
    EXPECT_EQ(users[0].mac[5], 0x0F);
    EXPECT_EQ(users[0].ipv4[3], 9);
    EXPECT_EQ(users[0].ipv6[0], 0xFE);
    EXPECT_STREQ(users[0].host_name, "first");
    EXPECT_EQ(std::uint16_t{users[0].os.detail.vendor_id}, 12);
    EXPECT_EQ(std::uint16_t{users[0].os.detail.type_id}, 99);
    EXPECT_EQ(std::uint16_t{users[0].os.detail.family_id}, 6);
    EXPECT_EQ(std::uint32_t{users[0].ts}, 1000U);
    EXPECT_EQ(users[1].uid, 1) << "the same number twice, on purpose";
    EXPECT_EQ(std::uint32_t{users[1].available}, 0U);
    EXPECT_NEAR(users[1].ts, time(nullptr), 5);
    EXPECT_TRUE(source.finished());
}

TEST(Scenario, StepsByRequestAreSeenByTheRequestThatBeginsThem) {
    Scenario source(parseScenario(R"({
        "applications": {"Chess": {"category": 8, "id": 30}},
        "steps": [
          {"users": {"a": {"mac": "02:00:00:00:00:01"}, "b": {"mac": "02:00:00:00:00:02"}},
           "set": [{"user": "a", "app": "Chess", "down": 3001}, {"user": "b", "app": "Chess"}]},
          {"request": 2, "add": [{"user": "a", "app": "Chess", "down": 10, "up": 1, "last": 77}],
           "repeat": {"times": 2, "every_requests": 2}},
          {"request": 5, "users": {"b": null}, "set": [{"user": "a", "app": "Chess", "down": 1}]},
          {"request": 6, "remove": [{"user": "a", "app": "Chess"}]},
          {"request": 7, "clear": true}]})"));
    using Bytes = std::vector<std::uint64_t>;
    const Bytes expected[] = {{3001, 0}, {3011, 0}, {3011, 0}, {3021, 0}, {1}, {}, {}};
    for (const Bytes &bytes : expected) {
        EXPECT_EQ(source.timeout(), -1) << "it waits for requests, not for time";
        EXPECT_FALSE(source.finished());
        const std::size_t users = askUsers(source).size();
        EXPECT_EQ(users, bytes.size() == 2 ? 2U : &bytes == &expected[6] ? 0U : 1U);
        EXPECT_EQ(downBytes(source), bytes);
        if (&bytes == &expected[1]) {
            EXPECT_EQ(std::uint32_t{askRows(source)[0].down_accl_pkt}, 4U) << "3 frames and 1";
            EXPECT_EQ(std::uint32_t{askRows(source)[0].last_elapsed_ts}, 77U);
        }
    }
    EXPECT_TRUE(source.finished());
}

TEST(Scenario, StepsByTimeComeInOrderAndAreAnnouncedByTheTimeout) {
    Scenario source(parseScenario(R"({"steps": [
        {"generate": {"down": 1}, "repeat": {"times": 3, "every": 0.02}},
        {"after": 0.03, "clear": true}, {"at": 3600, "clear": true}]})"));
    EXPECT_EQ(downBytes(source), std::vector<std::uint64_t>{1});
    EXPECT_GT(source.timeout(), 0);
    EXPECT_LE(source.timeout(), 20);
    std::size_t turns = 0;
    while (!downBytes(source).empty()) {
        ASSERT_LT(++turns, 1000U);
        std::this_thread::sleep_for(std::chrono::milliseconds(source.timeout()));
        source.work();
    }
    EXPECT_GT(source.timeout(), 3'000'000);
    EXPECT_FALSE(source.finished());
}

TEST(Scenario, GeneratedLoadsGrowAndChurn) {
    Scenario full(parseScenario(R"({"steps": [{"generate": {"users": 63, "apps": 512, "down": 5},
                                     "repeat": {"times": 2, "every_requests": 1}}]})"));
    askUsers(full);
    auto rows = askRows(full);
    ASSERT_EQ(rows.size(), 32256U);
    EXPECT_EQ(std::uint64_t{rows.back().down_accl_byte}, 10U);
    EXPECT_EQ(rows.back().uid, 63);
    EXPECT_EQ(std::uint16_t{rows.back().app_id}, 512);

    Scenario churning(parseScenario(R"({"steps": [{"generate":
        {"users": 3, "apps": 4, "first_app": 65530, "user_shift": 1, "app_shift": 3, "down": 5},
        "repeat": {"times": 1000, "every_requests": 1}}]})"));
    askUsers(churning); // users 2 to 4 with the applications from 65533 on, which wrap
    rows = askRows(churning);
    ASSERT_EQ(rows.size(), 12U);
    std::map<int, std::uint64_t> down;
    for (const auto &row : rows) {
        if (row.uid == 2)
            down[row.app_id] = row.down_accl_byte;
    }
    EXPECT_EQ(down, (std::map<int, std::uint64_t>{{65533, 10}, {65534, 5}, {65535, 5}, {1, 5}}));
    for (int i = 0; i < 500; ++i)
        churning.answer({.nr = 10, .op = 1, .input = {}});
    EXPECT_EQ(askUsers(churning).size(), 3U);
    EXPECT_EQ(askRows(churning).size(), 12U) << "nothing is left behind";
}

TEST(Scenario, ABadEngineAsOrdered) {
    Scenario source(parseScenario(R"({"steps": [
        {"generate": {"users": 64, "apps": 512}, "replies": [
            {"nr": 10, "op": 1, "cut": 130},
            {"nr": 12, "op": 1, "reports": 2000000}]},
        {"request": 2, "replies": [{"nr": 10, "op": 1, "errno": "EIO"},
                                   {"nr": 12, "op": 1, "cut": 0}]},
        {"request": 3, "replies": [{"nr": 10, "op": 1, "remove": true}]}]})"));
    Reply users = ask(source, 10, 1, 5760);
    EXPECT_EQ(users.reportedLength, 130U) << "a partial record";
    const Reply rows = ask(source, 12, 1, 1'161'252);
    EXPECT_EQ(rows.output.size(), 1'161'252U) << "32,257 rows and no end marker";
    EXPECT_EQ(rows.reportedLength, 2'000'000U);
    EXPECT_EQ(ask(source, 10, 1).error, EIO);
    EXPECT_EQ(ask(source, 12, 1).reportedLength, 0U);
    users = ask(source, 10, 1, 5760);
    EXPECT_EQ(users.output.size(), 5760U) << "64 users and no end marker";
}

TEST(Scenario, FurtherRequestsHaveBytesOrRecords) {
    Scenario source(parseScenario(R"({"steps": [{"replies": [
        {"nr": 14, "op": 8, "hex": "01 fF 00"},
        {"nr": 14, "op": 4},
        {"nr": 12, "op": 4, "bandwidth": [
            {"uid": 1, "category": 2, "id": 772, "down": "72623859790382856", "up": 9}]},
        {"nr": 12, "op": 3, "patrol": [{"uid": 1, "mac": "0a:0b:0c:0d:0e:0f", "category": 2,
            "id": 772, "time": 84281096, "flag": 9, "available": 3}, {"available": 0}]}]}]})"));
    using Bytes = std::vector<std::uint8_t>;
    EXPECT_EQ(ask(source, 14, 8).output, (Bytes{1, 0xFF, 0}));
    EXPECT_EQ(ask(source, 14, 4).error, 0);
    EXPECT_EQ(ask(source, 14, 3).error, ENOTTY);
    EXPECT_EQ(ask(source, 12, 4).output,
              (Bytes{1, 2, 4, 3, 8, 7, 6, 5, 4, 3, 2, 1, 9, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}));
    Bytes patrol = {1, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 2, 4, 3, 8, 7, 6, 5, 9, 3, 0, 0, 0};
    patrol.resize(38);
    EXPECT_EQ(ask(source, 12, 3).output, patrol);
}

TEST(Scenario, NamesBecomeDatabaseFiles) {
    const Scratch scratch;
    const std::string databases = scratch.path() / "trend";
    std::string error;
    const auto source = openScenario(scratch.write("s.json", R"({
        "categories": {"8": "Games", "10": "100% Web"},
        "applications": {"Game 2048": {"category": 8, "id": 1, "behaviour": 2}},
        "devices": {"tv": {"vendor_id": 1, "dev_id": 5, "vendor": "Acme"}},
        "steps": [{}]})"),
                                     databases, error);
    ASSERT_NE(source, nullptr) << error;
    EXPECT_EQ(scratch.read("trend/bwdpi.cat.db"), "8,Games\n10,100% Web\n");
    EXPECT_EQ(scratch.read("trend/bwdpi.app.db"), "8,1,2,Game 2048\n");
    EXPECT_EQ(scratch.read("trend/bwdpi.devdb.db"),
              "1,0,0,0,5,0,\"Acme\",\"tv\",\"tv\",\"tv\",\"tv\",\"tv\"\n");
    EXPECT_EQ(source->categoryName(8), "Games");
    EXPECT_EQ(source->applicationName(8, 1), "Game 2048");
    EXPECT_EQ(source->applicationName(8, 2), "");

    const std::string bare = scratch.write("bare.json", R"({"steps": [{}]})");
    EXPECT_NE(openScenario(bare, scratch.path() / "none", error), nullptr);
    EXPECT_FALSE(std::filesystem::exists(scratch.path() / "none")) << "it names nothing";
    EXPECT_EQ(openScenario(scratch.path() / "s.json", scratch.path() / "s.json", error), nullptr);
    EXPECT_THAT(error, HasSubstr("cannot write"));
    EXPECT_EQ(openScenario(scratch.path() / "none.json", databases, error), nullptr);
    EXPECT_THAT(error, HasSubstr("none.json: No such file"));
}

TEST(Scenario, EveryMistakeInAFileSaysWhereItIs) {
    const std::pair<const char *, const char *> cases[] = {
        {"", "line 1: no valid JSON"},
        {"{\n\n\"steps\": [}", "line 3: no valid JSON"},
        {"[]", "must be an object"},
        {R"({})", "needs 'steps'"},
        {R"({"steps": [{}, 5]})", "steps 2: must be an object"},
        {R"({"stesp": []})", "unknown member 'stesp'"},
        {R"({"steps": [{"at": 1, "at": 2}]})", "steps 1: 'at' is there twice"},
        {R"({"steps": [{"at": 1, "request": 2}]})", "only one of"},
        {R"({"steps": [{"at": "1"}]})", "'at' must be a number"},
        {R"({"steps": [{"repeat": {"times": 2}}]})", "steps 1, repeat: needs one of"},
        {R"({"steps": [{"users": {"a": {}}}]})", "steps 1, users, a: needs 'mac'"},
        {R"({"steps": [{"users": {"a": {"mac": "02:00:00:00:00:01", "ip": "1.2.3"}}}]})",
         "'1.2.3' is no address"},
        {R"({"steps": [{"users": {"a": {"mac": "02:00:00:00:00:01", "device": "x"}}}]})",
         "device 'x' is not listed"},
        {R"({"steps": [{"set": [{"user": "a", "app": "x"}]}]})", "application 'x' is not listed"},
        {R"({"steps": [{"set": [{"app": "x"}]}]})", "set 1: needs 'uid'"},
        {R"({"steps": [{"set": [{"uid": 1, "category": 256, "id": 1}]}]})", "from 0 to 255"},
        {R"({"steps": [{"set": [{"uid": 1, "category": 1, "id": 1, "down": 1e17}]}]})",
         "'down' must be a whole number"},
        {R"({"steps": [{"set": [{"uid": 1, "category": 1, "id": 1, "down": "1x"}]}]})",
         "'down' must be a whole number"},
        {R"({"steps": [{"replies": [{"nr": 14, "op": 1, "hex": "0x"}]}]})", "pairs of digits"},
        {R"({"steps": [{"replies": [{"nr": 14, "op": 1, "errno": "EX"}]}]})", "not 'EX'"},
        {R"({"categories": {"x": "y"}, "steps": [{}]})", "category 'x' must be a number"},
        {R"({"devices": {"a": {"os": "\""}}, "steps": [{}]})", "the database file cannot hold"},
    };
    for (const auto &[text, reason] : cases) {
        try {
            parseScenario(text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const std::runtime_error &error) {
            EXPECT_THAT(error.what(), HasSubstr(reason)) << text;
        }
    }
}

TEST(Scenario, TheShippedOnesCanBePlayed) {
    const Scratch scratch;
    for (const auto &entry : std::filesystem::directory_iterator(SCENARIOS)) {
        std::string error;
        const auto source = openScenario(entry.path(), scratch.path(), error);
        ASSERT_NE(source, nullptr) << error;
        EXPECT_GE(source->tables.users().size(), 3U);
        for (const auto &row : source->tables.rows())
            EXPECT_NE(source->applicationName(row.cat_id, row.app_id), "");
    }
}

} // namespace
} // namespace idpfwd
