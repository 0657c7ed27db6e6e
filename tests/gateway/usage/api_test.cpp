// What is asked in URLs and answered in JSON, CSV and tables, with texts that mean harm.
#include "history_rig.h"
#include "usage/answers/api.h"
#include "usage/answers/format.h"
#include "usage/instance.h"
#include "usage/text.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace usage::testing {
namespace {

using Json = nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;
using Parameters = std::vector<std::pair<std::string, std::string>>;

constexpr Seconds kNoon = 1795262400; // 2026-11-21T12:00:00Z

class ApiTest : public HistoryTest {
  protected:
    ApiTest() {
        for (std::uint16_t application = 1; application <= 3; ++application) {
            engine.grow(1, application, {1000U * application, 1});
            engine.grow(2, application, {10U * application, 500});
        }
        sampleAt(kNoon);
    }
    HttpReply get(const std::string &path, const Parameters &parameters = {},
                  Listener listener = Listener::kTcp) {
        return api.handle({listener, "GET", "/api/v1/" + path, parameters, {}});
    }
    Json json(const std::string &path, const Parameters &parameters = {}) {
        reply = get(path, parameters);
        EXPECT_EQ(reply.status, 200) << reply.body;
        return Json::parse(reply.body);
    }
    int post(const std::string &path, const std::string &body,
             Listener listener = Listener::kSocket) {
        reply = api.handle({listener, "POST", "/api/v1/" + path, {}, body});
        return reply.status;
    }

    HttpReply reply;
    Api api{[this] {
                return View{history->present(),
                            history->store(),
                            history->status(),
                            history->rates(),
                            "br0",
                            now};
            },
            history.get(), folder.path()};
};

TEST_F(ApiTest, AnswersAreTheContractsToTheByte) {
    engine.forget(2);
    const std::string body = get("usage", {{"from", "24h"},
                                           {"to", "2026-11-21T12:00:00Z"},
                                           {"by", "device,application"},
                                           {"top", "1"}})
                                 .body;
    EXPECT_THAT(
        body,
        HasSubstr(
            R"("instance":"br0","zone":"UTC","from":"2026-11-20T12:00:00+00:00","to":"2026-11-21T12:00:00+00:00",)"
            R"("resolution":300,"by":["device","application"],"step":null,"total":{"down":0,"up":0},"rows":[],)"
            R"("others":{"count":0,"down":0,"up":0},"state":{"last_sample":"2026-11-21T12:00:00+00:00",)"
            R"("engine":"ok","clock":"ok","store":"ok","gaps":[)"));
    // A span's end is not in it, but the second under way is, also where a slot begins.
    EXPECT_THAT(
        get("usage", {{"by", "device,application"}, {"top", "1"}}).body,
        HasSubstr(
            R"("to":"2026-11-21T12:05:00+00:00","resolution":300,"by":["device","application"],"step":null,)"
            R"("total":{"down":6060,"up":1503},"rows":[{"device":{"mac":"02:00:00:00:00:01","name":"host-1"},)"
            R"("application":"app-3","category":"Odd","down":3000,"up":1}],"others":{"count":5,"down":3060,"up":1502},)"));
    EXPECT_THAT(
        get("usage", {{"by", "category"}, {"step", "hour"}}).body,
        HasSubstr(R"("rows":[{"start":"2026-11-21T12:00:00+00:00","category":"Odd","down":)"));
}

TEST_F(ApiTest, EveryOrderFilterAndGroupAgreesOnTheTotal) {
    for (const char *by :
         {"device", "application", "category", "device,category", "category,device,application"}) {
        for (const char *sort : {"down", "up", "total", "name"}) {
            const Json usage = json("usage", {{"by", by}, {"sort", sort}, {"step", "day"}});
            std::uint64_t down = usage["others"]["down"];
            for (const Json &row : usage["rows"])
                down += row["down"].get<std::uint64_t>();
            EXPECT_EQ(down, 6060U) << by << sort;
            EXPECT_EQ(usage["total"]["down"], 6060U);
        }
    }
    const auto first = [&](const char *sort) {
        return json("usage", {{"sort", sort}})["rows"][0]["device"]["name"];
    };
    EXPECT_EQ(first("down"), "host-1");
    EXPECT_EQ(first("up"), "host-2");
    EXPECT_EQ(first("name"), "host-1");
    const auto down = [&](const Parameters &parameters) {
        return json("usage", parameters)["total"]["down"].get<int>();
    };
    EXPECT_EQ(down({{"device", "HOST-2"}}), 60);
    EXPECT_EQ(down({{"device", "02-00-00-00-00-02"}, {"device", "host-1"}}), 6060);
    EXPECT_EQ(down({{"device", "02:ff:ff:ff:ff:ff"}}), 0);
    EXPECT_EQ(down({{"category", "odd"}, {"application", "app-1"}}), 1010);
    EXPECT_EQ(down({{"category", "even"}, {"application", "app-1"}}), 0);
}

TEST_F(ApiTest, RefusesWhatItDoesNotUnderstandAndSaysWhichPart) {
    for (const auto &[parameter, value] : Parameters{{"from", ""},
                                                     {"from", "2026-02-30"},
                                                     {"to", "never"},
                                                     {"to", "2001-01-01"},
                                                     {"by", "device,"},
                                                     {"step", "minute"},
                                                     {"sort", "Down"},
                                                     {"top", "0"},
                                                     {"top", "-1"},
                                                     {"device", "nobody\""},
                                                     {"colour", "red"}}) {
        const HttpReply refused = get("usage", {{parameter, value}});
        EXPECT_EQ(refused.status, 400) << parameter << "=" << value;
        const Json error = Json::parse(refused.body)["error"];
        EXPECT_EQ(error["code"], "bad_parameter");
        EXPECT_EQ(error["parameter"], parameter);
    }
    EXPECT_EQ(get("usage", {{"top", "1"}, {"top", "2"}}).status, 400);
    EXPECT_EQ(get("frobnicate").status, 404);
    EXPECT_EQ(get("device").status, 405);
    EXPECT_EQ(get("export").status, 404); // not on TCP
    EXPECT_EQ(post("commit", "{}", Listener::kTcp), 405);
    EXPECT_EQ(post("usage", "{}"), 405);
    EXPECT_EQ(post("frobnicate", "{}"), 404);
    for (const char *body : {"", "[]", "{", R"({"mac":1})", R"({"mac":"x","name":"y"})",
                             R"({"mac":"02:00:00:00:00:01","nickname":"y"})"})
        EXPECT_EQ(post("device", body), 400) << body;
    for (const char *body :
         {R"({"total":0,"per":"day"})", R"({"total":-1,"per":"day"})",
          R"({"total":1.5,"per":"day"})", R"({"total":1,"per":"week"})",
          R"({"total":1,"per":"month","starts_on":32})", R"({"total":1,"per":"day","starts_on":7})",
          R"({"mac":"x","total":1,"per":"day"})", R"({"remove":0})"})
        EXPECT_EQ(post("quota", body), 400) << body;
    EXPECT_EQ(post("quota", R"({"remove":9})"), 404);
    EXPECT_EQ(post("forget", R"({"mac":"02:ff:ff:ff:ff:ff"})"), 404);
}

TEST_F(ApiTest, NamesThatMeanHarmStayText) {
    const Json body{{"mac", "02:00:00:00:00:01"}, {"name", "a\"b\\c,<script>\n\x1b[2J\u2603"}};
    ASSERT_EQ(post("device", body.dump()), 200);
    const std::string clean = "a\"b\\c,<script>\uFFFD\uFFFD[2J\u2603";
    const Json usage = json("usage");
    EXPECT_EQ(usage["rows"][0]["device"]["name"], clean);
    EXPECT_EQ(json("devices")["devices"][0]["own_name"], clean);
    EXPECT_THAT(get("export", {}, Listener::kSocket).body, HasSubstr("<script>"));
    EXPECT_THAT(usageCsv(usage),
                HasSubstr("mac,name,down,up\n02:00:00:00:00:01,\"a\"\"b\\c,<script>"));
    EXPECT_THAT(usageTable(usage, {}), Not(HasSubstr("\x1b")));
}

TEST_F(ApiTest, AnExportHasEachByteOnceHoweverItIsCut) {
    for (std::uint16_t application = 1; application < 1000; ++application)
        engine.grow(1, application, {7, 1});
    sampleAt(kNoon + 5);
    EXPECT_TRUE(history->commit());
    engine.grow(1, 1, {1000, 1}); // in the same slot
    sampleAt(kNoon + 10);
    std::uint64_t down = 0;
    Parameters after;
    for (int page = 0; page < 5; ++page) {
        reply = get("export", after, Listener::kSocket);
        std::istringstream lines(reply.body);
        for (std::string line; std::getline(lines, line);)
            down += Json::parse(line)["down"].get<std::uint64_t>();
        if (reply.headers.empty())
            break;
        after = {{"after", reply.headers[0].second}};
    }
    EXPECT_EQ(down, engine.truth.down);

    // What went on inside of an hour whose slots are gone by now would lack the rest of that hour.
    sampleAt(kNoon + 300);
    EXPECT_TRUE(history->commit());
    sampleAt(kNoon + 400000);
    EXPECT_TRUE(history->commit());
    EXPECT_EQ(get("export", {{"after", std::to_string(kNoon + 300)}}, Listener::kSocket).status,
              409);
    EXPECT_EQ(get("export", {{"after", std::to_string(kNoon + 3600)}}, Listener::kSocket).status,
              200);
}

TEST_F(ApiTest, ABackupComesInPiecesOfOneCopy) {
    ASSERT_EQ(post("backup", "{}"), 200);
    const std::string first = Json::parse(reply.body)["copy"].dump();
    const Parameters from = {{"copy", first}, {"from", "0"}};
    EXPECT_THAT(get("backup", from, Listener::kSocket).body, ::testing::StartsWith("SQLite"));
    ASSERT_EQ(post("backup", "{}"), 200);
    EXPECT_EQ(get("backup", from, Listener::kSocket).status, 404) << "another was begun since";
    EXPECT_THAT(folder.names(), ::testing::Contains("backup.db"));
    start();
    const Api next(nullptr, history.get(), folder.path());
    EXPECT_THAT(folder.names(), Not(::testing::Contains("backup.db")));
}

TEST_F(ApiTest, QuotasKnowTheirPeriodTheirUseAndWhetherTheyArePassed) {
    ASSERT_EQ(post("quota", R"({"mac":"02:00:00:00:00:01","total":6000,"per":"day"})"), 200);
    ASSERT_EQ(post("quota", R"({"mac":null,"total":7563,"per":"month","starts_on":15})"), 200);
    EXPECT_EQ(Json::parse(reply.body)["number"], 2);
    const Json quotas = json("quotas")["quotas"];
    EXPECT_EQ(quotas[0]["used"], 6003);
    EXPECT_EQ(quotas[0]["passed"], true);
    EXPECT_EQ(quotas[0]["estimate"], 12006); // half a day has passed
    EXPECT_EQ(quotas[1]["device"], nullptr);
    EXPECT_EQ(quotas[1]["from"], "2026-11-15T00:00:00+00:00");
    EXPECT_EQ(quotas[1]["used"], 7563);
    EXPECT_EQ(quotas[1]["passed"], false);
    ASSERT_EQ(post("quota", R"({"remove":1})"), 200);
    EXPECT_EQ(json("quotas")["quotas"].size(), 1U);
}

TEST_F(ApiTest, DevicesComeInPagesAndRatesPerSecond) {
    for (std::uint32_t i = 1; i <= 150; ++i)
        engine.grow(i, 1, {1, 1});
    sampleAt(kNoon + 2);
    const Json page = json("devices");
    EXPECT_EQ(page["devices"].size(), 100U);
    const Json rest = json("devices", {{"cursor", page["next"]}});
    EXPECT_EQ(rest["devices"].size(), 50U);
    EXPECT_EQ(rest["next"], nullptr);
    EXPECT_EQ(rest["devices"][49]["mac"], "02:00:00:00:00:96");
    const Json rates = json("now");
    EXPECT_EQ(rates["seconds"], 2);
    EXPECT_EQ(rates["total"]["down_per_second"], 75);
}

TEST(TableTest, RemarksTellWhatIsNotAsItShouldBe) {
    const Json fine = Json::parse(R"({"last_sample": "2026-11-21T12:00:00+00:00", "engine": "ok",
        "clock": "ok", "store": "ok", "gaps": [],
        "lost": {"devices": null, "rows": 0, "packets": null, "bytes": 0}})");
    EXPECT_EQ(remarks(fine), "\nLast sample: 2026-11-21 12:00.\n");
    const Json bad = Json::parse(R"({"last_sample": null, "engine": "unreachable",
        "clock": "waiting", "store": "full",
        "gaps": [{"from": "2026-11-21T12:00:03+00:00", "to": "2026-11-21T12:00:08+00:00"}],
        "lost": {"devices": 0, "rows": 0, "packets": 0, "bytes": 7}})");
    const std::string told = remarks(bad);
    EXPECT_THAT(told, HasSubstr("There was no sample yet.\nThe engine does not answer.\nSamples "));
    EXPECT_THAT(told, HasSubstr("The store can't be written"));
    EXPECT_THAT(told, HasSubstr("between 2026-11-21 12:00:03 and 2026-11-21 12:00:08.\n"));
    EXPECT_THAT(told, HasSubstr("Not counted since the engine started: 7 bytes.\n"));
    EXPECT_THAT(told, Not(HasSubstr("packets")));
}

TEST(TableTest, FitsTheTerminalAndAlignsWhateverIsInIt) {
    setlocale(LC_CTYPE, "C.UTF-8");
    const std::vector<Column> columns = {{"device", false}, {"down", true}};
    const std::vector<std::vector<std::string>> rows = {
        {"a name that is far too long for it", "1.0 GiB"}, {"\u65e5\u672c", "7 B"}};
    EXPECT_EQ(layTable(columns, rows, {.width = 20, .human = true, .colour = false}),
              "device          down\na name tha\u2026  1.0 GiB\n\u65e5\u672c             7 B\n");
    EXPECT_THAT(layTable(columns, rows, {.width = 3, .human = false, .colour = false}),
                HasSubstr("a nam\u2026"));
    EXPECT_THAT(layTable(columns, {}, {.width = 0, .human = false, .colour = true}),
                HasSubstr("\x1b[1m"));
}

TEST(InstanceTest, IsTheOnlyOneThereIsOrHasToBeNamed) {
    const Scratch roots;
    const std::string state = roots / "state";
    const std::string runtime = roots / "run";
    const auto find = [&](Place given) { return findPlace(std::move(given), state, runtime); };
    EXPECT_THROW(find(Place()), UsageError);
    EXPECT_EQ(find({"br7", "", ""}).socket(), runtime + "/br7/api.sock");
    std::filesystem::create_directories(state + "/br0");
    EXPECT_EQ(find(Place()).state, state + "/br0");
    EXPECT_EQ(find({"", "/some/lan/", ""}).instance, "lan");
    std::filesystem::create_directories(runtime + "/br1");
    EXPECT_THROW(find(Place()), UsageError);
    EXPECT_THROW(find({"../etc", "", ""}), UsageError);
}

} // namespace
} // namespace usage::testing
