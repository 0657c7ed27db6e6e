// The store against power cuts, damage, want of room and strangers.
#include "careless_disk.h"
#include "history_rig.h"
#include "usage/http/site.h"

#include <fstream>
#include <gmock/gmock.h>
#include <random>

namespace usage::testing {
namespace {

using ::testing::HasSubstr;

constexpr Seconds kStart = 1795219200; // 2026-11-21T00:00:00Z

class StoreTest : public HistoryTest {
  protected:
    void growAndSample(int times, Seconds apart) {
        for (int i = 0; i < times; ++i) {
            engine.grow(1 + static_cast<std::uint32_t>(i) % 5, 1, {1000, 100});
            sampleAt(now + apart);
        }
    }
    std::string file() { return storeFile(folder.path()); }
    std::string reasonOfRefusal() {
        try {
            start();
        } catch (const StoreError &error) {
            return error.what();
        }
        return "";
    }
};

// Cut at every write and sync of some commits, the store opens again, has all of a commit or
// nothing of it, and counting goes on to the truth.
TEST_F(StoreTest, APowerCutAtAnyWriteLeavesAWholeCommit) {
    const auto life = [&] {
        history.reset();
        std::filesystem::remove_all(folder.path());
        std::filesystem::create_directory(folder.path());
        disk.renew();
        engine.beginAgain();
        start();
        now = kStart;
        growAndSample(30, 1200);
        const std::size_t before = disk.steps;
        growAndSample(9, 1200);
        return disk.steps - before;
    };
    const std::size_t cuts = life();
    ASSERT_GT(cuts, 20U);
    for (std::size_t cut = 0; cut < cuts; ++cut) {
        SCOPED_TRACE(cut);
        life();
        EXPECT_TRUE(history->commit());
        const Bytes committed = engine.truth;
        disk.cutAt = disk.steps + cut;
        growAndSample(9, 1200);
        const Bytes atMost = engine.truth;
        history.reset();
        disk.restore(cut % 3);
        std::filesystem::remove(folder / "scratch"); // it was in memory
        told.clear();
        start();
        EXPECT_EQ(told, "");
        EXPECT_GE(total().down, committed.down);
        EXPECT_LE(total().down, atMost.down);
        growAndSample(1, 5);
        EXPECT_EQ(total(), engine.truth);
    }
}

TEST_F(StoreTest, AFullDiskStopsWritingNotCounting) {
    every = 1000;
    start();
    now = kStart;
    growAndSample(3, 5);
    disk.full = true;
    growAndSample(60, 1000);
    EXPECT_EQ(history->status().store, StoreHealth::kFull);
    EXPECT_FALSE(history->nameDevice(macOf(1), "nobody"));
    EXPECT_EQ(history->present().directory.find(macOf(1))->name(), "host-1");
    EXPECT_EQ(total(), engine.truth);
    EXPECT_LE(history->present().slots.size(), 36U);                // however long it takes
    const Seconds oldest = history->present().slots.begin()->first; // holds what was before it
    EXPECT_EQ(history->present().gaps.back().to, oldest + kSlotSeconds);
    disk.full = false;
    growAndSample(1, 1000);
    EXPECT_EQ(history->status().store, StoreHealth::kOk);
    EXPECT_TRUE(history->present().slots.empty());
    EXPECT_EQ(total(), engine.truth);
}

// Whatever is done to the file: the service starts or says why not, nothing is thrown away, and no
// damaged number is shown.
TEST_F(StoreTest, DamageIsPutAsideOrRefusedAndNeverShown) {
    now = kStart;
    growAndSample(200, 1200);
    EXPECT_TRUE(history->commit());
    history.reset();
    const Bytes truth = engine.truth;
    std::filesystem::copy(file(), folder / "good");
    const auto size = std::filesystem::file_size(folder / "good");
    std::mt19937 random(3);
    int asides = 0;
    for (int round = 0; round < 150; ++round) {
        SCOPED_TRACE(round);
        for (const auto &entry : std::filesystem::directory_iterator(folder.path())) {
            if (entry.path() != folder / "good")
                std::filesystem::remove(entry.path());
        }
        std::filesystem::copy(folder / "good", file());
        if (round % 3 == 0) {
            std::filesystem::resize_file(file(), random() % size);
        } else {
            std::fstream stream(file(), std::ios::in | std::ios::out | std::ios::binary);
            stream.seekp(static_cast<std::streamoff>(random() % size));
            const std::string noise(1 + random() % 64, static_cast<char>(random()));
            stream.write(noise.data(), static_cast<std::streamsize>(noise.size()));
        }
        told.clear();
        if (!reasonOfRefusal().empty())
            continue;
        try {
            EXPECT_LE(total().down, truth.down);
        } catch (const SqlDamage &) { // said, not shown
        }
        if (history->status().store == StoreHealth::kSetAside) {
            ++asides;
            EXPECT_TRUE(std::filesystem::exists(history->store().setAsideAs()));
            EXPECT_THAT(told, HasSubstr("put aside as"));
            EXPECT_TRUE(history->commit());
        }
    }
    EXPECT_GT(asides, 20);
}

TEST_F(StoreTest, DamageFoundAtWorkBeginsANewStoreWithoutLosingTheRunningHour) {
    now = kStart;
    growAndSample(40, 1200);
    EXPECT_TRUE(history->nameDevice(macOf(1), "mine"));
    engine.grow(1, 1, {5, 5});
    sampleAt(now + 5);
    history.reset();
    {
        Database database(file(), SQLITE_OPEN_READWRITE);
        database.run("UPDATE slot SET packed = x'00' WHERE start = (SELECT max(start) FROM slot)");
    }
    start();
    EXPECT_EQ(history->status().store, StoreHealth::kOk);
    Api api(nullptr, nullptr, folder.path());
    Site(api, *history, "br0", {"127.0.0.1", 1, "", ""}).sampled(now); // no messages then
    std::filesystem::rename(file(), folder / "away");                  // it can't be put aside
    EXPECT_FALSE(history->commit());
    EXPECT_THROW(total(), SqlDamage);
    std::filesystem::rename(folder / "away", file());
    disk.full = true; // it can, but there is no room for another
    EXPECT_FALSE(history->commit());
    EXPECT_FALSE(history->nameDevice(macOf(1), "nobody"));
    EXPECT_EQ(history->status().store, StoreHealth::kFull);
    EXPECT_THROW(total(), SqlError);
    disk.full = false;
    EXPECT_TRUE(history->commit());
    EXPECT_EQ(history->status().store, StoreHealth::kSetAside);
    EXPECT_EQ(total(), (Bytes{5, 5}));
    start();
    EXPECT_EQ(history->present().directory.find(macOf(1))->name(), "mine");
    growAndSample(1, 5);
    EXPECT_EQ(total(), (Bytes{1005, 105}));
}

TEST_F(StoreTest, StoresOfOthersAreLeftAsTheyAre) {
    EXPECT_THAT(
        [&] {
            Present present;
            Store(StoreOptions{.folder = folder.path()}, present);
        },
        ::testing::ThrowsMessage<StoreError>(HasSubstr("in use by another service")));
    history.reset();
    for (const auto &[sql, reason] : std::map<const char *, const char *>{
             {"PRAGMA user_version = 7", "version 7"},
             {"PRAGMA application_id = 99; PRAGMA user_version = 1", "another program's"},
             {"PRAGMA application_id = 0", "another program's"}}) {
        { Database(file(), SQLITE_OPEN_READWRITE).run(sql); }
        EXPECT_THAT(reasonOfRefusal(), HasSubstr(reason));
    }
    EXPECT_EQ(Database(file(), SQLITE_OPEN_READONLY).number("SELECT count(*) FROM quota"), 0);
    std::filesystem::remove(file());
    std::filesystem::create_directory(file());
    EXPECT_THAT(reasonOfRefusal(), HasSubstr("cannot open"));
    std::filesystem::remove_all(folder.path());
    EXPECT_THAT(reasonOfRefusal(), HasSubstr("cannot make"));
}

TEST_F(StoreTest, TheOldestGoesWhenTheLimitIsReachedAndTotalsStay) {
    limit = 120000;
    start();
    now = kStart;
    for (int day = 0; day < 100; ++day) {
        for (std::uint16_t i = 0; i < 300; ++i)
            engine.grow(1U + i % 5U, i, {1U + i, 1});
        sampleAt(now + 6 * kHourSeconds);
    }
    EXPECT_LE(history->store().usedBytes(), limit + 20000);
    EXPECT_THAT(told, HasSubstr("the store is at its limit"));
    EXPECT_EQ(total(), engine.truth);
    EXPECT_EQ(sumOf(ask(kStart, now + 1, Level::kDay)), engine.truth);
}

TEST_F(StoreTest, ManyDevicesInADayBecomeOneEntryOfOthers) {
    now = kStart;
    for (std::uint32_t i = 0; i < 400; ++i) {
        engine.grow(i + 1, 1, {1000 + i, 1});
        sampleAt(now + 100);
        engine.forget(i + 1);
    }
    sampleAt(kStart + kDaySeconds);
    EXPECT_TRUE(history->commit());
    const Answer day = ask(kStart, kStart + kDaySeconds);
    EXPECT_EQ(day.rows.size(), 256U);
    EXPECT_EQ(day.rows.back().bytes.down, 1144U); // those with the most are told apart
    EXPECT_EQ(day.total, engine.truth);
    EXPECT_EQ(sumOf(day), engine.truth);
}

TEST_F(StoreTest, ABackupIsAWholeStoreOfItsOwn) {
    now = kStart;
    growAndSample(10, 1200);
    EXPECT_TRUE(history->commit());
    const std::string other = folder / "100%41 of?it#all";
    std::filesystem::create_directory(other);
    history->store().backUp(storeFile(other));
    Present present;
    const auto copy = Store::openToRead(other, present);
    Question question;
    question.range = {kStart, now + 1};
    EXPECT_EQ(usage::ask(present, *copy, question).total, engine.truth);
}

} // namespace
} // namespace usage::testing
