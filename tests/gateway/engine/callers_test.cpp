#include "engine/callers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <ctime>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

long secondsAhead = 0;

} // namespace

// The clocks of this executable can be set ahead.
extern "C" int clock_gettime(clockid_t clock, timespec *now) {
    const auto result = syscall(SYS_clock_gettime, clock, now);
    now->tv_sec += secondsAhead;
    return static_cast<int>(result);
}

namespace idpfwd {
namespace {

// Asks for (u)sers and (r)ows: a + for each that is answered, a - for each that is held back.
std::string ask(Callers &callers, pid_t caller, const std::string &tables) {
    std::string answers;
    for (const char table : tables)
        answers +=
            callers.heldBack(caller, table == 'u' ? Table::kUsers : Table::kRows) ? '-' : '+';
    return answers;
}

TEST(Callers, ThatAreOlderThanTheEngineAreHeldBackForTwoReadings) {
    const std::pair<const char *, const char *> readings[] = {
        {"ururur", "----++"},       // users, then rows
        {"rururur", "----+++"},     // the first users were the life before's: joined with nothing
        {"rrrr", "--++"},           // only rows
        {"uuuu", "--++"},           // rows fail: nothing is joined
        {"uruuruuru", "-----++++"}, // users again, to see who has gone meanwhile
    };
    for (const auto &[tables, answers] : readings) {
        Callers callers;
        EXPECT_EQ(ask(callers, getpid(), tables), answers) << tables;
    }
    Callers callers;
    callers.knowsLives(getpid());
    EXPECT_EQ(ask(callers, getpid(), "ur"), "++");
}

TEST(Callers, AreKnownByTheirProcessWhicheverThreadAsks) {
#ifdef EMULATOR
    GTEST_SKIP() << "the emulator makes up what /proc says of the process that it runs";
#endif
    Callers callers;
    std::string answers;
    for (int i = 0; i < 6; ++i)
        std::jthread([&] { answers += ask(callers, gettid(), i % 2 == 0 ? "u" : "r"); }).join();
    EXPECT_EQ(answers, "----++");
}

class Child {
  public:
    Child() : process_(fork()) {
        if (process_ == 0) {
            pause();
            _exit(0);
        }
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    [[nodiscard]] pid_t process() const { return process_; }

  private:
    pid_t process_;
};

long ticks() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec * 100 + now.tv_nsec / 10'000'000;
}

TEST(Callers, ThatAreYoungerThanTheEngineAreNotHeldBack) {
    Callers callers;
    const Child child;
    EXPECT_EQ(ask(callers, child.process(), "ur"), "++");
}

TEST(Callers, ThatBeganInTheEnginesOwnTickAreOlder) {
    bool sameTick = false;
    for (int times = 0; times < 20 && !sameTick; ++times) {
        const long before = ticks();
        while (ticks() == before) {
        }
        const Child child;
        sameTick = ticks() == before + 1;
        Callers callers;
        EXPECT_EQ(ask(callers, child.process(), "ur"), "--");
    }
}

TEST(Callers, ThatCannotBeSeenAreHeldBackForThreePeriods) {
    Callers callers;
    EXPECT_EQ(ask(callers, 0, "urururur"), "--------");
    callers.knowsLives(0);
    secondsAhead = 29;
    EXPECT_EQ(ask(callers, 0, "ur"), "--") << "nobody is taken for another";
    secondsAhead = 31;
    EXPECT_EQ(ask(callers, 0, "ur"), "++");
    secondsAhead = 0;
}

} // namespace
} // namespace idpfwd
