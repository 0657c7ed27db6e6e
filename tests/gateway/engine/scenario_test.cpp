#include "engine/scenario/scenario.h"

#include "engine/engine_state.h"
#include "engine/requests.h"
#include "scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <unistd.h>

namespace idpfwd {
namespace {

using testing::HasSubstr;
using Numbers = std::vector<std::uint64_t>;
using Bytes = std::vector<std::uint8_t>;

Reply ask(Source &source, std::uint8_t nr, std::uint8_t op, std::uint32_t capacity = 2'000'000) {
    const CallerHeader header{
        .magic = 191, .nr = nr, .op = op, .outAddress = 1, .outCapacity = capacity};
    RequestServer server(source);
    server.serve(IDPFWD_REQUEST_STATE,
                 {.magic = IDPFW_MAGIC, .nr = IDPFWD_NR_STATE, .op = IDPFWD_OP_STATE}, {},
                 getpid()); // a caller that is not held back
    return server.serve(0xC02CBF00U + nr, header, {}, getpid());
}

Numbers downBytes(const Source &source) {
    Numbers bytes;
    for (const auto &row : source.tables.rows())
        bytes.push_back(row.down_accl_byte);
    return bytes;
}

TEST(Scenario, StepsByRequestAreSeenByTheRequestThatBeginsThem) {
    Scenario source(parseScenario(R"({
        "applications": {"Chess": {"category": 8, "id": 30}},
        "steps": [
          {"users": {"a": {"mac": "02:00:00:00:00:01"},
                     "b": {"mac": "02:00:00:00:00:02", "uid": 7}},
           "set": [{"user": "a", "app": "Chess", "down": 3001}, {"uid": 7, "app": "Chess"}]},
          {"request": 2, "add": [{"user": "a", "app": "Chess", "down": 10}],
           "repeat": {"times": 2, "every_requests": 2}},
          {"request": 5, "users": {"b": null}, "set": [{"user": "a", "app": "Chess", "down": 1}]},
          {"request": 6, "remove": [{"user": "a", "app": "Chess"}]},
          {"request": 7, "clear": true}]})"));
    EXPECT_EQ(std::uint32_t{source.tables.rows()[0].down_accl_pkt}, 3U) << "as many frames";
    const std::pair<std::size_t, Numbers> expected[] = {
        {2, {3001, 0}}, {2, {3011, 0}}, {2, {3011, 0}}, {2, {3021, 0}}, {1, {1}}, {1, {}}, {0, {}}};
    for (const auto &[users, bytes] : expected) {
        EXPECT_EQ(source.timeout(), -1) << "it waits for requests, not for time";
        EXPECT_FALSE(source.finished());
        EXPECT_EQ(ask(source, 10, 1).output.size(), users * 90);
        EXPECT_EQ(downBytes(source), bytes);
    }
    EXPECT_TRUE(source.finished());
}

TEST(Scenario, DevicesWithoutANumberGetTheLowestThatIsFreeAndThenNone) {
    std::string users;
    for (int i = 0; i < 256; ++i)
        users += (users.empty() ? "\"" : ",\"") + std::to_string(i) +
                 R"(": {"mac": "02:00:00:00:00:01"})";
    Scenario source(
        parseScenario(R"({"applications": {}, "steps": [{"users": {)" + users + "}}]}"));
    ask(source, 10, 1);
    for (std::uint32_t i = 0; i < 256; ++i)
        EXPECT_EQ(source.tables.users()[i].uid, (i + 1) % 256);
}

TEST(Scenario, EveryMemberOfARecordIsTakenUpToItsLimit) {
    Scenario source(parseScenario(R"({
        "about": "limits", "devices": {"phone": {"vendor_id": 1, "os_id": 2, "class_id": 3,
                                                 "type_id": 4, "dev_id": 5, "family_id": 6}},
        "steps": [
          {"users": {"a": {"mac": "02:00:00:00:00:01", "uid": 255, "device": "phone",
                           "type_id": 65535, "seen": 4294967295, "available": 2,
                           "host_name": "a name of thirty-two characters!"}},
           "set": [{"uid": 255, "category": 255, "id": 65535, "down": 9007199254740992, "up": 1500,
                    "last": 4294967295, "available": 3}]},
          {"add": [{"user": "a", "category": 255, "id": 65535, "down": 8, "up": 1,
                    "down_packets": 0, "up_packets": 5, "last": 6, "available": 7}]},
          {"at": 1e9}]})"));
    const devid_user_entry user = source.tables.users()[0];
    EXPECT_EQ(std::string(user.host_name, 32), "a name of thirty-two characters!");
    EXPECT_EQ(Numbers({user.uid, user.available, user.ts, user.ts_create}),
              Numbers({255, 2, 6, 4294967295}));
    const devid_os_detail &ids = user.os.detail;
    EXPECT_EQ(
        Numbers({ids.vendor_id, ids.os_id, ids.class_id, ids.type_id, ids.dev_id, ids.family_id}),
        Numbers({1, 2, 3, 65535, 5, 6}));
    const devid_app_rate_entry &row = source.tables.rows()[0];
    EXPECT_EQ(Numbers({row.cat_id, row.app_id, row.down_accl_byte, row.up_accl_byte,
                       row.up_accl_pkt, row.last_elapsed_ts, row.available}),
              Numbers({255, 65535, 9007199254741000, 1501, 6, 6, 7}));
    EXPECT_EQ(std::uint32_t{row.down_accl_pkt}, 4294967295U) << "frames, in 32 bits at most";
}

TEST(Scenario, StepsByTimeComeInOrderAndAreAnnouncedByTheTimeout) {
    Scenario source(parseScenario(R"({"steps": [
        {"generate": {"down": 1}, "repeat": {"times": 3, "every": 0.01}},
        {"after": 0.01, "replies": [{"nr": 14, "op": 8}]}, {"at": 3600, "clear": true}]})"));
    while (ask(source, 14, 8).error != 0) {
        ASSERT_LE(source.timeout(), 10);
        std::this_thread::sleep_for(std::chrono::milliseconds(source.timeout()));
        source.work();
    }
    EXPECT_EQ(downBytes(source), Numbers{3});
    EXPECT_GT(source.timeout(), 1000);

    Scenario late(parseScenario(
        R"({"steps": [{"generate": {"down": 1}, "repeat": {"times": 5, "every": 0.001}}]})"));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    late.work();
    EXPECT_EQ(downBytes(late), Numbers{5}) << "all that are late, in one turn";
}

TEST(Scenario, GeneratedLoadsChurnAndLeaveNothingBehind) {
    Scenario source(parseScenario(R"({"steps": [{"generate":
        {"users": 3, "apps": 4, "category": 9, "first_app": 65530, "user_shift": 1, "app_shift": 3,
         "down": 5},
        "repeat": {"times": 2, "every_requests": 1}}]})"));
    ask(source, 10, 1); // users 2 to 4 with the applications from 65533 on, which wrap
    EXPECT_EQ(source.tables.users().size(), 3U);
    EXPECT_EQ(source.tables.rows().size(), 12U);
    const devid_app_rate_entry &last = source.tables.rows().back();
    EXPECT_EQ(last.uid, 1) << "the lowest that is free";
    EXPECT_EQ(last.cat_id, 9);
    EXPECT_EQ(std::uint16_t{last.app_id}, 1) << "behind the last one";
}

TEST(Scenario, ABadEngineAsOrdered) {
    Scenario source(parseScenario(R"({"steps": [
        {"generate": {"users": 64, "apps": 512}, "replies": [
            {"nr": 10, "op": 1, "cut": 130},
            {"nr": 12, "op": 1, "reports": 2000000},
            {"nr": 14, "op": 8, "hex": "01 fF 00", "cut": 3},
            {"nr": 14, "op": 1, "bandwidth": [{"uid": 1, "category": 2, "id": 772,
                "down": "18446744073709551615", "up": 5, "available": 3}]},
            {"nr": 12, "op": 3, "patrol": [{"uid": 1, "mac": "0a:0b:0c:0d:0e:0f", "category": 2,
                "id": 772, "time": 84281096, "flag": 9, "available": 3}]}]},
        {"request": 2, "replies": [{"nr": 10, "op": 1, "errno": "EIO"}]},
        {"request": 3, "replies": [{"nr": 10, "op": 1, "remove": true}]}]})"));
    EXPECT_EQ(ask(source, 10, 1).reportedLength, 130U) << "a partial record";
    const Reply rows = ask(source, 12, 1, 1'161'252);
    EXPECT_EQ(rows.output.size(), 1'161'252U) << "32,257 rows and no end marker";
    EXPECT_EQ(rows.reportedLength, 2'000'000U);
    EXPECT_EQ(ask(source, 14, 8).output, (Bytes{1, 0xFF, 0}));
    EXPECT_EQ(ask(source, 14, 1).output,
              (Bytes{1, 2, 4, 3, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                     5, 0, 0, 0, 0,    0,    0,    0,    3,    0,    0,    0}));
    EXPECT_EQ(ask(source, 12, 3).output,
              (Bytes{1, 10, 11, 12, 13, 14, 15, 2, 4, 3, 8, 7, 6, 5, 9, 3, 0, 0, 0}));
    EXPECT_EQ(ask(source, 10, 1).error, EIO);
    EXPECT_EQ(ask(source, 10, 1, 5760).output.size(), 5760U) << "64 users and no end marker";
}

TEST(Scenario, NamesBecomeDatabaseFiles) {
    const Scratch scratch;
    std::string error;
    const std::string file = scratch.write("s.json", R"({
        "categories": {"8": "Games", "10": "100% Web"},
        "applications": {"Game 2048": {"category": 8, "id": 1, "behaviour": 2}},
        "devices": {"tv": {"vendor_id": 1, "dev_id": 5, "vendor": "Acme"}},
        "steps": [{}]})");
    ASSERT_NE(openScenario(file, scratch.path() / "trend", error), nullptr) << error;
    EXPECT_EQ(scratch.read("trend/bwdpi.cat.db"), "8,Games\n10,100% Web\n");
    EXPECT_EQ(scratch.read("trend/bwdpi.app.db"), "8,1,2,Game 2048\n");
    EXPECT_EQ(scratch.read("trend/bwdpi.devdb.db"),
              "1,0,0,0,5,0,\"Acme\",\"tv\",\"tv\",\"tv\",\"tv\",\"tv\"\n");
    EXPECT_NE(openScenario(SCENARIOS "/evening.json", scratch.path(), error), nullptr) << error;
}

TEST(Scenario, AMistakeInAFileSaysWhereItIs) {
    const std::pair<const char *, const char *> cases[] = {
        {"{\n\n\"steps\": [}", "line 3: no valid JSON"},
        {R"({"steps": []})", "needs 'steps'"},
        {R"({"steps": [5]})", "steps 1: must be an object"},
        {R"({"steps": 5})", "'steps' must be a list"},
        {R"({"steps": [{"stesp": []}]})", "steps 1: unknown member 'stesp'"},
        {R"({"steps": [{"at": 1, "at": 2}]})", "steps 1: 'at' is there twice"},
        {R"({"steps": [{"at": 1, "after": 2}]})", "only one of 'at', 'after' and 'request'"},
        {R"({"steps": [{"at": "1"}]})", "'at' must be a number of seconds"},
        {R"({"steps": [{"at": -0.1}]})", "'at' must be from 0 to 1e9 seconds"},
        {R"({"steps": [{"after": 1000000001}]})", "'after' must be from 0 to 1e9 seconds"},
        {R"({"steps": [{"clear": 1}]})", "'clear' must be true or false"},
        {R"({"steps": [{"repeat": {"times": 2}}]})", "steps 1, repeat: needs one of"},
        {R"({"steps": [{"repeat": {"times": 2, "every": 0}}]})", "needs one of"},
        {R"({"steps": [{"repeat": {"times": 2, "every": 1, "every_requests": 1}}]})",
         "needs one of"},
        {R"({"steps": [{"repeat": {"times": 0, "every_requests": 1}}]})", "must be above 0"},
        {R"({"steps": [{"generate": {"down": 1e17}}]})", "'down' must be a whole number"},
        {R"({"steps": [{"generate": {"down": 1.5}}]})", "'down' must be a whole number"},
        {R"({"steps": [{"generate": {"down": "1x"}}]})", "'down' must be a whole number"},
        {R"({"steps": [{"generate": {"users": 256}}]})", "from 0 to 255"},
        {R"({"steps": [{"generate": {"first": 1}}]})", "generate: unknown member 'first'"},
        {R"({"categories": {"256": "x"}, "steps": [{}]})", "must be a number from 0 to 255"},
        {R"({"categories": {"1": "x\ny"}, "steps": [{}]})", "the database file cannot hold"},
        {R"({"categories": {"1": 1}, "steps": [{}]})", "categories: '1' must be a text"},
        {R"({"applications": {"a": null}, "steps": [{}]})", "needs a category and an id"},
        {R"({"applications": {"a": {"category": 1}}, "steps": [{}]})", "'id'"},
        {R"({"devices": {"a": null}, "steps": [{}]})", "must be an object"},
        {R"({"devices": {"a": {"os": "\""}}, "steps": [{}]})", "the database file cannot hold"},
        {R"({"steps": [{"users": {"a": {"mac": "02"}}}]})", "users, a: needs 'mac'"},
        {R"({"steps": [{"users": {"a": {"mac": "02:00:00:00:00:01", "ip": "10.0.0.256"}}}]})",
         "is no address for 'ip'"},
        {R"({"steps": [{"users": {"a": {"mac": "02:00:00:00:00:01",
                                        "host_name": "a name of thirty-three characters"}}}]})",
         "at most 32 bytes"},
        {R"({"steps": [{"users": {"a": {"mac": "02:00:00:00:00:01", "device": "x"}}}]})",
         "device 'x' is not listed"},
        {R"({"steps": [{"set": [{"user": "a", "app": "x"}]}]})", "application 'x' is not listed"},
        {R"({"steps": [{"replies": [{"nr": 1, "op": 1, "errno": "EHM"}]}]})", "not 'EHM'"},
        {R"({"steps": [{"replies": [{"nr": 1, "op": 1, "hex": "0"}]}]})", "pairs of digits"},
        {R"({"steps": [{"replies": [{"nr": 1, "op": 1, "hex": "0g"}]}]})", "pairs of digits"},
        {R"({"steps": [{"replies": [{"nr": 1, "op": 1, "hex": "", "patrol": []}]}]})",
         "only one of"},
        {R"({"steps": [{"replies": [{"nr": 1, "op": 1, "patrol": [{"mac": "x"}]}]}]})", "'mac'"},
    };
    for (const auto &each : cases)
        EXPECT_THAT([&] { parseScenario(each.first); },
                    testing::ThrowsMessage<std::runtime_error>(HasSubstr(each.second)));
}

} // namespace
} // namespace idpfwd
