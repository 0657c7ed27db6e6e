#include "ingest/report/batch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

namespace fleet {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

constexpr Batch::Clock::time_point kNow{};

TEST(Batch, IsClosedByRowsBytesOrAge) {
    const std::string row(100, 'x');
    Batch batch;
    EXPECT_FALSE(batch.isDue(kNow + std::chrono::hours(1))); // nothing in it
    batch.add(row, kBatchRows - 1, "a", kNow);
    EXPECT_FALSE(batch.isDue(kNow + kBatchAge - std::chrono::milliseconds(1)));
    EXPECT_TRUE(batch.isDue(kNow + kBatchAge));
    batch.add(row, 1, "a", kNow + kBatchAge / 2); // age is the first one's
    EXPECT_TRUE(batch.isDue(kNow));
    batch.clear();
    EXPECT_FALSE(batch.isDue(kNow + kBatchAge));
    batch.add(std::string(kBatchBytes - 1, 'x'), 1, "a", kNow);
    EXPECT_FALSE(batch.isDue(kNow));
    batch.add("x", 1, "a", kNow);
    EXPECT_TRUE(batch.isDue(kNow));
}

TEST(Batch, GivesTheTextOfAnyRange) {
    Batch batch;
    batch.add("1\n2\n", 2, "A\n", kNow);
    batch.add("", 0, "B\n", kNow);
    batch.add("3\n", 1, "C\n", kNow);
    EXPECT_EQ(batch.rows(batch.all()), "1\n2\n3\n");
    EXPECT_EQ(batch.rows({1, 2}), "");
    EXPECT_EQ(batch.arrivals({1, 3}), "B\nC\n");
    EXPECT_EQ(batch.rowCount({0, 2}), 2U);
    EXPECT_EQ(batch.rowCount({1, 3}), 1U);
}

// A store that refuses what holds one of the bad reports, and goes away after so many answers.
class Store {
  public:
    Store(std::size_t reports, std::set<std::size_t> bad, int answers = 1000)
        : bad_(std::move(bad)), answers_(answers) {
        for (std::size_t i = 0; i < reports; ++i)
            batch_.add("row\n", 1, "arrival\n", kNow);
    }

    void settle() {
        const auto each = [](std::vector<std::size_t> &list) {
            return [&list](Range range) {
                for (std::size_t i = range.first; i < range.last; ++i)
                    list.push_back(i);
            };
        };
        fleet::settle(batch_, {.store = [this](Range range) { return answer(range); },
                               .stored = each(stored),
                               .refused = [this](std::size_t index) { refused.push_back(index); },
                               .left = each(left)});
    }

    std::vector<std::size_t> stored;
    std::vector<std::size_t> refused;
    std::vector<std::size_t> left;
    int asked = 0;

  private:
    Verdict answer(Range range) {
        if (asked++ >= answers_)
            return Verdict::kAway;
        const auto first = bad_.lower_bound(range.first);
        return first != bad_.end() && *first < range.last ? Verdict::kRefused : Verdict::kStored;
    }

    Batch batch_;
    std::set<std::size_t> bad_;
    int answers_;
};

TEST(Settling, AsksOnceWhenNothingIsWrongAndNotAtAllWithoutReports) {
    Store whole(1000, {});
    whole.settle();
    EXPECT_EQ(whole.asked, 1);
    EXPECT_EQ(whole.stored.size(), 1000U);
    Store none(0, {});
    none.settle();
    EXPECT_EQ(none.asked, 0);
}

TEST(Settling, FindsExactlyTheBadReports) {
    for (const std::set<std::size_t> &bad :
         {std::set<std::size_t>{0}, {6}, {0, 6}, {2, 3}, {0, 1, 2, 3, 4, 5, 6}}) {
        Store store(7, bad);
        store.settle();
        EXPECT_EQ(std::set(store.refused.begin(), store.refused.end()), bad);
        EXPECT_EQ(store.stored.size() + bad.size(), 7U);
        EXPECT_TRUE(store.left.empty());
    }
    Store large(1000, {613});
    large.settle();
    EXPECT_THAT(large.refused, ElementsAre(613));
    EXPECT_LE(large.asked, 21); // two for each halving
}

TEST(Settling, LeavesEverythingThatIsOpenWhenTheStoreGoesAway) {
    Store store(8, {7}, 2); // the whole is refused, the first half stored
    store.settle();
    EXPECT_THAT(store.stored, ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(store.left, UnorderedElementsAre(4, 5, 6, 7));
    EXPECT_TRUE(store.refused.empty());
    EXPECT_EQ(store.asked, 3); // and not once more
}

} // namespace
} // namespace fleet
