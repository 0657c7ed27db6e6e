#include "ingest/clickhouse.h"

#include "fleet/http_fake.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fleet {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char *kNobody = "http://127.0.0.1:1"; // refuses at once

constexpr const char *kUnreadable =
    "Code: 27, e.displayText() = DB::Exception: Cannot parse input: expected \\t before: zz";
constexpr const char *kNoMemory =
    "Code: 241, e.displayText() = DB::Exception: Memory limit exceeded";

TEST(Store, TellsRowsAtFaultFromTroubleOfItsOwn) {
    const struct {
        const char *answer;
        bool refused;
    } rows[] = {
        {kUnreadable, true},
        {"Code: 69, e.displayText() = DB::Exception: too large", true},
        {"Code: 49, e.displayText() = DB::Exception: Unknown element 'x' for type Enum8", true},
        {"Code: 49, e.displayText() = DB::Exception: Block structure mismatch", false},
        {kNoMemory, false},
        {"Code: 60, e.displayText() = DB::Exception: Table usage.reports doesn't exist.", false},
        {"Code: 252, e.displayText() = DB::Exception: Too many parts", false},
        {"Code: 242, e.displayText() = DB::Exception: Table is in readonly mode", false},
        {"Code: 999, e.displayText() = Coordination::Exception", false},
        {"Code: ", false},
        {"502 Bad Gateway", false},
        {"", false},
    };
    for (const auto &row : rows)
        EXPECT_EQ(refusesRows(row.answer), row.refused) << row.answer;
}

TEST(Store, SendsRowsAsTheyAreAndTheStatementInTheAddress) {
    HttpFake replica({{200, ""}});
    Store store({replica.address() + "/?user=ingest"});
    EXPECT_EQ(store.insert("usage.reports (a)", std::string("1\t\0\xFF\n", 5)).result,
              StoreResult::kDone);
    ASSERT_EQ(replica.requests().size(), 1U);
    EXPECT_THAT(replica.requests()[0],
                StartsWith("POST /?user=ingest&query=INSERT%20INTO%20usage.reports%20%28a%29%20"
                           "FORMAT%20TabSeparated "));
    EXPECT_THAT(replica.requests()[0], EndsWith(std::string("\r\n\r\n1\t\0\xFF\n", 9)));
    EXPECT_EQ(store.insert("usage.reports (a)", "").result, StoreResult::kDone);
    EXPECT_EQ(replica.requests().size(), 1U); // nothing to send
}

TEST(Store, GoesOnToTheOtherReplicaAndStaysThere) {
    HttpFake replica({{200, "one\n"}});
    Store store({kNobody, replica.address()});
    EXPECT_EQ(store.ask("SELECT 1").text, "one\n");
    EXPECT_EQ(store.ask("SELECT 1").result, StoreResult::kDone);
    EXPECT_EQ(replica.requests().size(), 2U);
    EXPECT_EQ(store.askReplica(0, "SELECT 1").result, StoreResult::kAway);
}

TEST(Store, AsksTheOtherReplicaWhenOneHasTroubleButNotWhenTheRowsAreAtFault) {
    HttpFake first({{500, kNoMemory}, {500, kUnreadable}});
    HttpFake second({{500, kNoMemory}, {200, ""}});
    Store store({first.address(), second.address()});
    const Answer away = store.insert("t", "x\n");
    EXPECT_EQ(away.result, StoreResult::kAway);
    EXPECT_THAT(away.text, HasSubstr("Memory limit"));
    EXPECT_EQ(store.insert("t", "x\n").result, StoreResult::kRefused);
    EXPECT_EQ(first.requests().size(), 2U);
    EXPECT_EQ(second.requests().size(), 1U);
}

} // namespace
} // namespace fleet
