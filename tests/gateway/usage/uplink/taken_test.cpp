#include "usage/uplink/taken.h"

#include "gateway/engine/scratch.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace uplink {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char *kReport = "aws_traffic_usage_details.json";
constexpr time_t kNow = 1'795'292'280;

class UplinkTaken : public testing::Test {
  protected:
    // Writes a file of the spool that changed so many seconds ago.
    void write(const std::string &name, const std::string &text, time_t age = 60) {
        const std::string path = scratch_.write("spool/" + name, text);
        const timespec changed{.tv_sec = kNow - age, .tv_nsec = 0};
        const timespec times[] = {changed, changed};
        utimensat(AT_FDCWD, path.c_str(), times, 0);
    }

    void take(Occasion occasion = Occasion::kWritten) { spool_.take(*outbox_, occasion, kNow); }

    // What waits, as "sequence:report".
    std::vector<std::string> waiting() {
        std::vector<std::string> found;
        for (auto message = outbox_->next(0); message; message = outbox_->next(message->sequence))
            found.push_back(std::to_string(message->sequence) + ":" + message->report);
        return found;
    }

    [[nodiscard]] std::vector<std::string> spool() const { return scratch_.names("spool"); }

    Scratch scratch_;
    std::filesystem::path spoolPath_ = scratch_.path() / "spool";
    bool made_ = std::filesystem::create_directory(spoolPath_);
    std::optional<Outbox> outbox_{std::in_place, scratch_.path(), 1 << 20};
    std::string told_;
    Spool spool_{spoolPath_, [this](const std::string &line) { told_ += line + "\n"; }};
};

// Each state is what a kill after one of the steps leaves behind; the outbox has had 1 to 7.
TEST_F(UplinkTaken, EveryStepIsTakenUpWhereItEnded) {
    const struct {
        const char *state;
        std::vector<std::pair<std::string, std::string>> files;
        std::vector<std::string> waiting;
    } rows[] = {
        {"nothing there", {}, {}},
        {"written", {{kReport, "{}"}}, {"8:{}"}},
        {"renamed", {{"taken-8", "{}"}}, {"8:{}"}},
        {"in the outbox, or acknowledged since", {{"taken-7", "{}"}}, {}},
        {"renamed, and the next is written",
         {{"taken-8", "{}"}, {kReport, "{\"a\":1}"}},
         {"8:{}", "9:{\"a\":1}"}},
        {"in, and the next is written",
         {{"taken-7", "{}"}, {kReport, "{\"a\":1}"}},
         {"8:{\"a\":1}"}},
        {"several, in the order of numbers",
         {{"taken-10", "{\"a\":1}"}, {"taken-9", "{}"}},
         {"9:{}", "10:{\"a\":1}"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.state);
        outbox_.reset();
        std::filesystem::remove(scratch_.path() / Outbox::kFile);
        outbox_.emplace(scratch_.path(), 1 << 20);
        outbox_->put(7, 0, "{}");
        outbox_->remove(std::array<std::int64_t, 1>{7});
        for (const auto &[name, text] : row.files)
            write(name, text);
        take();
        EXPECT_EQ(waiting(), row.waiting);
        EXPECT_THAT(spool(), IsEmpty());
        take();
        EXPECT_EQ(waiting(), row.waiting);
    }
    EXPECT_EQ(told_, "");
    EXPECT_EQ(outbox_->next(0)->taken, kNow);
}

TEST_F(UplinkTaken, TheTimerLeavesTheDaemonTimeToPrintItsReport) {
    write(kReport, "{}", Spool::kSettled - 1);
    take(Occasion::kTimer);
    EXPECT_THAT(spool(), ElementsAre(kReport));
    write(kReport, "{}", Spool::kSettled);
    take(Occasion::kTimer);
    EXPECT_THAT(waiting(), ElementsAre("1:{}"));
    write(kReport, "{}", -3600); // the clock was set back since
    take(Occasion::kTimer);
    EXPECT_THAT(waiting(), ElementsAre("1:{}", "2:{}"));
}

TEST_F(UplinkTaken, AReportThatIsStillBeingWrittenIsWaitedForInItsOrder) {
    write(kReport, "{\"a\"", Spool::kSettled - 1);
    take();
    write(kReport, "{}", 0);
    take();
    EXPECT_THAT(waiting(), IsEmpty());
    EXPECT_THAT(spool(), ElementsAre("taken-1", "taken-2"));
    write("taken-1", "{\"a\":1}", 0);
    take();
    EXPECT_THAT(waiting(), ElementsAre("1:{\"a\":1}", "2:{}"));

    write(kReport, "{\"a\"", Spool::kSettled - 1);
    take();
    EXPECT_EQ(told_, "");
    write("taken-3", "{\"a\"", Spool::kSettled);
    take();
    EXPECT_THAT(spool(), ElementsAre("rejected-1"));
    write(kReport, "{}");
    take();
    EXPECT_THAT(waiting(), ElementsAre("1:{\"a\":1}", "2:{}", "3:{}"));
}

TEST_F(UplinkTaken, WhatIsNoReportIsKeptApartAndTold) {
    const auto report = spoolPath_ / kReport;
    const std::string victim = scratch_.write("victim", "{}");
    const std::pair<std::function<void()>, const char *> rows[] = {
        {[&] { write(kReport, "not JSON"); }, "not JSON"},
        {[&] { write(kReport, std::string((1 << 20) + 1, ' '), 0); }, "larger than a report"},
        {[&] { write(kReport, "{\"a\":\"" + std::string(kMaxReport, 'x') + "\"}"); },
         "than a message"},
        {[&] { symlink(victim.c_str(), report.c_str()); }, "no readable file"},
        {[&] { mkfifo(report.c_str(), 0600); }, "no readable file"},
        {[&] { std::filesystem::create_directory(report); }, "no readable file"},
    };
    for (const auto &[happens, said] : rows) {
        told_.clear();
        happens();
        take();
        EXPECT_THAT(told_, HasSubstr(said));
    }
    EXPECT_THAT(spool(), ElementsAre("rejected-3", "rejected-4", "rejected-5", "rejected-6"));
    EXPECT_EQ(scratch_.read("victim"), "{}");
    EXPECT_THAT(waiting(), IsEmpty());
    EXPECT_EQ(outbox_->last(), 0);
}

TEST_F(UplinkTaken, ReportsWaitWhileTheOutboxCanNotBeWritten) {
    outbox_.reset();
    Database(scratch_.path() / Outbox::kFile)
        .run("CREATE TRIGGER full BEFORE INSERT ON report BEGIN SELECT raise(ABORT, 'full'); END");
    outbox_.emplace(scratch_.path(), 1 << 20);
    for (std::size_t i = 0; i < Spool::kTakenKept + 2; ++i) {
        write(kReport, "{\"a\":" + std::to_string(i) + "}");
        EXPECT_THROW(take(), SqlError);
    }
    EXPECT_EQ(spool().size(), Spool::kTakenKept + 1); // and the daemon's own file
    outbox_.reset();
    Database(scratch_.path() / Outbox::kFile).run("DROP TRIGGER full");
    outbox_.emplace(scratch_.path(), 1 << 20);
    take();
    take();
    EXPECT_EQ(waiting().size(), Spool::kTakenKept + 1);
    EXPECT_EQ(waiting().front(), "1:{\"a\":0}");
    EXPECT_EQ(waiting().back(), "17:{\"a\":17}");
    EXPECT_THAT(spool(), IsEmpty());
}

TEST_F(UplinkTaken, AFullOutboxIsToldAndAMissingFolderIsNone) {
    outbox_.reset();
    outbox_.emplace(scratch_.path(), 3);
    write(kReport, "{}");
    take();
    write(kReport, "{}");
    take();
    EXPECT_THAT(waiting(), ElementsAre("2:{}"));
    EXPECT_THAT(told_, HasSubstr("1 oldest reports were dropped"));
    std::filesystem::remove(spoolPath_);
    EXPECT_NO_THROW(take());
}

} // namespace
} // namespace uplink
