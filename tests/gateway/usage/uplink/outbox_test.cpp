#include "usage/uplink/outbox.h"

#include "gateway/engine/scratch.h"

#include <gmock/gmock.h>

namespace uplink {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kRoomy = 1 << 20;

std::vector<std::int64_t> sequences(Outbox &outbox) {
    std::vector<std::int64_t> found;
    for (std::int64_t after = 0; const auto message = outbox.next(after); after = found.back())
        found.push_back(message->sequence);
    return found;
}

TEST(UplinkOutbox, KeepsReportsIdentityAndSequenceOverARestart) {
    const Scratch scratch;
    std::string identity;
    {
        Outbox outbox(scratch.path(), kRoomy);
        identity = outbox.identity();
        EXPECT_EQ(outbox.last(), 0);
        for (const int sequence : {1, 2, 5})
            EXPECT_EQ(outbox.put(sequence, 1000 + sequence, "{\"a\":\"\\u0000\"}"), 0);
        outbox.remove(std::array<std::int64_t, 3>{1, 5, 77});
    }
    EXPECT_THAT(scratch.names(), ElementsAre(Outbox::kFile));
    Outbox outbox(scratch.path(), kRoomy);
    EXPECT_EQ(outbox.identity(), identity);
    EXPECT_EQ(identity.size(), 32U);
    EXPECT_EQ(outbox.last(), 5);
    EXPECT_EQ(outbox.waiting(), 1);
    EXPECT_EQ(outbox.next(0)->taken, 1002);
    EXPECT_EQ(outbox.next(0)->report, "{\"a\":\"\\u0000\"}");
    EXPECT_EQ(outbox.next(2), std::nullopt);
}

TEST(UplinkOutbox, ASequenceThatHasBeenInIsNotPutInAgain) {
    const Scratch scratch;
    Outbox outbox(scratch.path(), kRoomy);
    outbox.put(3, 0, "first");
    outbox.put(3, 1, "second");
    EXPECT_EQ(outbox.next(0)->report, "first");
    outbox.remove(std::array<std::int64_t, 1>{3});
    outbox.put(3, 2, "third");
    outbox.put(2, 2, "third");
    EXPECT_THAT(sequences(outbox), IsEmpty());
}

TEST(UplinkOutbox, AFullOneDropsTheOldestAndCounts) {
    const Scratch scratch;
    Outbox outbox(scratch.path(), 100);
    const std::string half(50, 'x');
    EXPECT_EQ(outbox.put(1, 0, half), 0);
    EXPECT_EQ(outbox.put(2, 0, half), 0);
    EXPECT_EQ(outbox.put(3, 0, "y"), 1);
    EXPECT_THAT(sequences(outbox), ElementsAre(2, 3));
    EXPECT_EQ(outbox.put(4, 0, std::string(100, 'x')), 2);
    EXPECT_EQ(outbox.put(5, 0, std::string(101, 'x')), 1); // larger than the limit: alone
    EXPECT_THAT(sequences(outbox), ElementsAre(5));
    EXPECT_EQ(outbox.next(0)->dropped, 4);
    EXPECT_EQ(outbox.put(6, 0, half), 1);
    EXPECT_EQ(outbox.next(0)->dropped, 5);
    outbox.put(7, 0, half);
    EXPECT_EQ(outbox.next(6)->dropped, 5);
}

// Changes what an outbox with reports in it consists of.
void damage(const std::filesystem::path &file, std::int64_t from, std::size_t size) {
    std::fstream bytes(file, std::ios::in | std::ios::out | std::ios::binary);
    bytes.seekp(from);
    bytes << std::string(size, '\x5a');
}

TEST(UplinkOutbox, ADamagedOneIsSetAsideForOneWithAnotherIdentity) {
    const Scratch scratch;
    const auto file = scratch.path() / Outbox::kFile;
    const std::function<void()> damages[] = {
        [&] {
            scratch.write(Outbox::kFile, "no database, and longer than the head of one is " +
                                             std::string(100, '-'));
        },
        [&] { std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2); },
        [&] { damage(file, 4096, 8); },
        [&] { damage(file, 0, 4); },
        [&] { Database(file).run("DELETE FROM outbox"); },
        [&] { Database(file).run("UPDATE outbox SET identity = 'short'"); },
    };
    std::string identity;
    for (const auto &happens : damages) {
        {
            Outbox outbox(scratch.path(), kRoomy);
            EXPECT_NE(outbox.identity(), identity);
            identity = outbox.identity();
            EXPECT_EQ(outbox.last(), 0);
            for (int i = 1; i < 20; ++i)
                outbox.put(i, 0, std::string(3000, 'x'));
        }
        happens();
        EXPECT_THROW(Outbox(scratch.path(), kRoomy), SqlDamage);
        setAside(scratch.path());
    }
    EXPECT_THAT(scratch.names(), ElementsAre("damaged-5-outbox.db", "damaged-6-outbox.db"));
}

TEST(UplinkOutbox, ANewerOneIsLeftAlone) {
    const Scratch scratch;
    { const Outbox outbox(scratch.path(), kRoomy); }
    Database(scratch.path() / Outbox::kFile).run("PRAGMA user_version=2");
    EXPECT_THAT([&] { Outbox(scratch.path(), kRoomy); },
                testing::ThrowsMessage<SqlError>(testing::HasSubstr("newer")));
}

} // namespace
} // namespace uplink
