// What is sampled, stopped, lost sight of and restarted still is the truth.
#include "history_rig.h"
#include "usage/store/scratch.h"

#include <fstream>
#include <random>

namespace usage::testing {
namespace {

constexpr Seconds kStart = 1795219200; // 2026-11-21T00:00:00Z

TEST_F(HistoryTest, CountsAStayInFullAndSaysThatNobodyKnowsWhen) {
    engine.grow(1, 1, {100, 10});
    engine.created[1] = kStart - 50;
    sampleAt(kStart);
    EXPECT_EQ(total(), engine.truth);
    EXPECT_EQ(history->present().gaps, (std::vector<Span>{{kStart - 50, kStart}}));
    sampleAt(kStart + 5);
    engine.grow(1, 1, {1, 1});
    engine.answers = false; // costs its sample only
    sampleAt(kStart + 10);
    EXPECT_FALSE(history->status().engineAnswers);
    EXPECT_EQ(history->present().lastSample, kStart + 5);
    engine.answers = true;
    sampleAt(kStart + 16);
    EXPECT_EQ(history->present().gaps.back(), (Span{kStart + 5, kStart + 16}));
    EXPECT_EQ(total(), engine.truth);
}

// Random growth, kills between any two steps, stops, stays that end, engines that restart (each
// sampled before, as an orderly end is): all bytes, in the slots where they were sampled.
TEST_F(HistoryTest, KillsAndRestartsLoseAndDoubleNothing) {
    const InZone zone("Australia/Lord_Howe");
    std::mt19937 random(7);
    Seconds time = kStart;
    std::map<Seconds, Bytes> truthOfSlots;
    Bytes sampled;
    for (int step = 0; step < 500; ++step, time += 5 + random() % 90) {
        for (int i = 0; i < 3; ++i)
            engine.grow(1 + random() % 5, 1 + random() % 4, {random() % 100000, random() % 1000});
        sampleAt(time);
        Bytes &slot = truthOfSlots[time - time % kSlotSeconds];
        slot.down += engine.truth.down - sampled.down;
        slot.up += engine.truth.up - sampled.up;
        sampled = engine.truth;
        const auto event = random() % 20;
        if (event == 0)
            engine.restart();
        if (event == 1)
            engine.forget(1 + random() % 5);
        if (event == 2) {
            EXPECT_TRUE(history->commit());
        }
        if (event <= 6)
            start(); // a kill: nothing is said to the old one
    }
    EXPECT_EQ(total(), engine.truth);
    for (const auto &[slot, bytes] : truthOfSlots)
        ASSERT_EQ(ask(slot, slot + 1).total, bytes) << slot;
    for (const Level step : {Level::kHour, Level::kDay, Level::kMonth})
        EXPECT_EQ(sumOf(ask(kStart, time, step)), engine.truth);
}

TEST_F(HistoryTest, AScratchThatFollowsAnotherCommitIsNotUsed) {
    sampleAt(kStart);
    engine.grow(1, 1, {100, 10});
    sampleAt(kStart + 5);
    std::filesystem::copy(folder / "scratch", folder / "old");
    EXPECT_TRUE(history->commit());
    history.reset();
    std::filesystem::rename(folder / "old", folder / "scratch");
    start();
    EXPECT_EQ(total(), engine.truth);
    history.reset();
    std::filesystem::resize_file(folder / "scratch", 10);
    start();
    std::filesystem::create_directory(folder / "scratch.new"); // in the way of the next
    told.clear();
    sampleAt(kStart + 10);
    sampleAt(kStart + 15);
    EXPECT_EQ(told, "the engine answers\nthe scratch can't be written: what is not committed would "
                    "not outlive a kill\n");
    EXPECT_EQ(total(), engine.truth);
}

TEST_F(HistoryTest, AnEngineThatIsMissedIsToldOnceFromTheStartOn) {
    engine.answers = false;
    for (const Seconds later : {0, 5})
        sampleAt(kStart + later);
    engine.answers = true;
    sampleAt(kStart + 10);
    EXPECT_EQ(told, "the engine does not answer\nthe engine answers\n");
}

TEST_F(HistoryTest, SamplesWaitForAClockThatIsBehindOrLeapsAhead) {
    sampleAt(100);
    EXPECT_TRUE(history->status().clockWaits);
    history->sample({kStart, 105000}); // the clock is set for the first time
    EXPECT_FALSE(history->status().clockWaits);
    EXPECT_EQ(history->present().lastSample, kStart);
    engine.grow(1, 1, {100, 10});
    history->sample({kStart + 5 + 400 * kDaySeconds, 110000});
    EXPECT_TRUE(history->status().clockWaits);
    history->sample({kStart + 10, 115000});
    EXPECT_FALSE(history->status().clockWaits);
    EXPECT_EQ(ask(kStart, kStart + kHourSeconds).total, engine.truth);
    history->sample({kStart - 5, 120000});
    EXPECT_TRUE(history->status().clockWaits);
    history->sample({kStart + 5 * kHourSeconds, 125000});
    EXPECT_TRUE(history->status().clockWaits);
    history->sample({kStart + 5 * kHourSeconds + 600, 725000}); // it stays there: it is right
    EXPECT_FALSE(history->status().clockWaits);
}

TEST_F(HistoryTest, ForgettingMovesBytesToTheOthersAndBeginsAnew) {
    engine.grow(1, 1, {100, 10});
    engine.grow(2, 1, {7, 1});
    sampleAt(kStart);
    EXPECT_TRUE(history->nameDevice(macOf(1), "mine"));
    sampleAt(kStart + 2 * kHourSeconds);
    engine.grow(1, 2, {1000, 0});
    sampleAt(kStart + 2 * kHourSeconds + 5);
    EXPECT_TRUE(history->forgetDevice(macOf(1)));
    EXPECT_EQ(history->present().directory.find(macOf(1)), nullptr);
    history->store().backUp(folder / "copy");
    for (const std::string &file : folder.names())
        EXPECT_EQ(folder.read(file).find("mine"), std::string::npos) << file;
    const Answer answer = ask(kStart, now + 1);
    EXPECT_EQ(answer.others, (Bytes{1100, 10}));
    EXPECT_EQ(answer.rows.size(), 1U);
    engine.grow(1, 2, {5, 5});
    sampleAt(now + 5);
    start();
    EXPECT_EQ(history->present().directory.find(macOf(1))->name(), "host-1");
    EXPECT_EQ(ask(kStart, now + 1).rows.size(), 2U);
    EXPECT_EQ(total(), engine.truth);
}

TEST_F(HistoryTest, AYearKeepsEveryByteWhateverIsAsked) {
    const InZone zone("America/New_York");
    const Seconds end = kStart + 430 * kDaySeconds;
    for (Seconds time = kStart; time < end; time += 11 * kHourSeconds + 1000) {
        const auto number = static_cast<std::uint32_t>(time / kDaySeconds);
        engine.forget(number - 2); // a new address every day
        engine.grow(number, 1, {1000, 10});
        engine.grow(7, static_cast<std::uint16_t>(1 + number % 9), {5, 5});
        sampleAt(time);
    }
    EXPECT_TRUE(history->commit());
    EXPECT_EQ(total(), engine.truth);
    EXPECT_EQ(ask(kStart, end).resolution, 30 * kDaySeconds);
    for (const Seconds days : {1, 20, 100, 300, 430}) {
        const Answer whole = ask(end - days * kDaySeconds, end);
        EXPECT_EQ(sumOf(whole), whole.total);
        for (const Level step : {Level::kHour, Level::kDay, Level::kMonth}) {
            const Answer stepped = ask(end - days * kDaySeconds, end, step);
            EXPECT_EQ(sumOf(stepped), whole.total) << days;
        }
    }
    // Nobody that no period tells of is remembered: those of the days, and of the months before.
    EXPECT_LT(history->present().directory.devices().size(), 445U);
}

TEST_F(HistoryTest, AFloodOfAddressesIsBounded) {
    for (std::uint32_t i = 0; i < 65540; ++i)
        engine.grow(i, 1, {1, 1});
    sampleAt(kStart);
    EXPECT_EQ(history->present().directory.devices().size(), 65536U);
    EXPECT_EQ(history->present().slots.at(kStart).at(Pair{}), (Bytes{4, 4}));
}

// Asked for from its middle on, a moment after its first half has become too old.
TEST_F(HistoryTest, TheOldestPeriodOfALevelIsWholeOrGone) {
    struct Oldest {
        Seconds begin; // in its day
        Seconds length;
        Seconds kept;
    };
    now = kStart;
    for (const Oldest &oldest : {Oldest{kSlotSeconds, kSlotSeconds, 3 * kDaySeconds},
                                 {kHourSeconds, kHourSeconds, 62 * kDaySeconds},
                                 {0, kDaySeconds, 400 * kDaySeconds}}) {
        const Seconds begin = (now / kDaySeconds + 2) * kDaySeconds + oldest.begin;
        const Seconds middle = begin + oldest.length / 2;
        const Bytes before = engine.truth;
        for (const Seconds time : {begin, begin + oldest.length - 1, middle + oldest.kept}) {
            engine.grow(1, 1, {1000, 0});
            sampleAt(time);
        }
        EXPECT_TRUE(history->commit());
        const Answer answer = ask(middle + 1, now + 1);
        EXPECT_EQ(answer.resolution, oldest.length);
        EXPECT_EQ(answer.total.down, engine.truth.down - before.down) << oldest.length;
    }
}

} // namespace
} // namespace usage::testing
