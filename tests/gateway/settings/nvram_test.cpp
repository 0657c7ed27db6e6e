#include "platform/nvram.h"

#include "gateway/settings/own_store.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <fstream>
#include <iterator>
#include <latch>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {
class Nvram : public OwnStore {};

std::string contents(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// What a loss of power cannot take any more, while a test asks for it.
bool power_is_unsafe = false;
std::string on_disk;

std::function<void()> before_pread; // once, when so many more have been
int preads_left = 0;

int set(const std::string &name, const std::string &value) {
    return kelpNvramConfig_set(name.c_str(), value.c_str());
}

std::string get(const std::string &name) {
    return kelpNvramConfig_get(name.c_str());
}

void expectWorkingStore() {
    EXPECT_EQ(set("name", "value"), 0);
    EXPECT_EQ(get("name"), "value");
    EXPECT_EQ(kelpNvramConfig_save(), 0);
}
} // namespace

// LMDB's way to permanent storage.
extern "C" int fdatasync(int descriptor) {
    if (power_is_unsafe)
        on_disk = contents("/proc/self/fd/" + std::to_string(descriptor));
    return 0;
}

#ifdef __LP64__ // elsewhere it has another name
extern "C" ssize_t pread(int descriptor, void *to, std::size_t size, off_t at) {
    if (before_pread && preads_left-- == 0)
        std::exchange(before_pread, nullptr)();
    return syscall(SYS_pread64, descriptor, to, size, at);
}
#endif

TEST_F(Nvram, NamesAndValuesAreTakenUpToTheirLimitsAndMatchedExactly) {
    inProcess([] {
        const std::string name(511, 'n');
        const std::string value(65536, 'v');
        EXPECT_EQ(set(name, value), 0);
        EXPECT_EQ(set(name, value + "v"), -1);
        EXPECT_EQ(get(name), value);
        EXPECT_EQ(set(name + "n", "x"), -1);
        EXPECT_EQ(set("", "x"), -1);
        EXPECT_EQ(kelpNvramConfig_match(name.c_str(), value.c_str()), 1);
        EXPECT_EQ(kelpNvramConfig_match(name.c_str(), "v"), 0);
        EXPECT_STREQ(kelpNvramConfig_get(nullptr), "");
        EXPECT_EQ(kelpNvramConfig_set(nullptr, "x"), -1);
        EXPECT_EQ(kelpNvramConfig_match("x", nullptr), 0);
    });
}

TEST_F(Nvram, ATextStaysValidUntilItsThreadHasRead16More) {
    inProcess([] {
        const auto value = [](int i) { return std::string(i % 17 * 4000 + 1, 'a'); };
        for (int i = 0; i < 17; ++i)
            set(std::to_string(i), value(i));
        std::array<const char *, 16> texts;
        for (int i = 0; i < 40; ++i)
            texts[i % 16] = kelpNvramConfig_get(std::to_string(i % 17).c_str());
        std::thread([] { get("15"); }).join();
        for (int i = 24; i < 40; ++i)
            EXPECT_TRUE(texts[i % 16] == value(i)) << i;
    });
}

TEST_F(Nvram, AChildOpensTheStoreAnewAndItsParentKeepsItsOwn) {
    inProcess([this] {
        set("name", "parent");
        inProcess([this] {
            setenv("NVRAM_DIR", (folder / "a" / "b").c_str(), 1);
            EXPECT_EQ(get("name"), "");
            EXPECT_EQ(set("name", "child"), 0);
        });
        EXPECT_EQ(get("name"), "parent");
        inProcess([] { EXPECT_EQ(set("name", get("name") + "'s child"), 0); });
        EXPECT_EQ(get("name"), "parent's child");
    });
}

// Sets the numbers in turn, each with its own length of padding, and tells which were set.
static void writeForever(const std::string &name, std::atomic<int> &done) {
    for (int n = done + 1;; ++n) {
        if (set(name, std::to_string(n) + " " + std::string(n * 997 % 20000, 'x')) != 0)
            _exit(1);
        done = n;
    }
}

TEST_F(Nvram, ProcessesKilledAtAnyMomentLoseNothingAndLeaveNoLock) {
#ifdef EMULATOR
    GTEST_SKIP() << "the emulator does not free the locks of a process that was killed";
#endif
    constexpr int kWriters = 3;
    void *shared = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    auto *done = static_cast<std::atomic<int> *>(shared);
    std::mt19937 random(1);
    for (int round = 0; round < 25; ++round) {
        std::array<pid_t, kWriters> writers;
        for (int i = 0; i < kWriters; ++i)
            writers[i] = startProcess([&, i] { writeForever(std::to_string(i), done[i]); });
        for (int i = 0; i < kWriters; ++i) {
            const int seen = done[i];
            while (done[i] == seen && waitpid(writers[i], nullptr, WNOHANG) == 0)
                usleep(100);
            usleep(random() % 2000);
            kill(writers[i], SIGKILL);
            EXPECT_EQ(statusOf(writers[i]), -SIGKILL);
        }
        inProcess([&] {
            for (int i = 0; i < kWriters; ++i) {
                const std::string text = get(std::to_string(i));
                const int stored = std::stoi(text);
                EXPECT_TRUE(stored == done[i] || stored == done[i] + 1) << stored;
                EXPECT_EQ(text.size(), std::to_string(stored).size() + 1 + stored * 997 % 20000);
                done[i] = stored;
            }
            expectWorkingStore();
        });
    }
    munmap(shared, 4096);
}

// Each page of the store may have reached the disk since the last sync, or not.
TEST_F(Nvram, WhatWasSavedOutlivesALossOfPowerAtAnyLaterMoment) {
    inProcess([&] {
        power_is_unsafe = true;
        set("name", "old");
        set("name", "saved");
        kelpNvramConfig_save();
        std::filesystem::create_directory(folder / "left");
        std::mt19937 random(1);
        for (int later = 0; later < 40; ++later) {
            const std::string now = contents(folder / "data.mdb");
            std::string left = on_disk;
            left.resize(now.size());
            for (std::size_t page = 0; page < now.size(); page += 4096)
                if (random() % 2 == 0)
                    left.replace(page, 4096, now, page, 4096);
            std::ofstream(folder / "left" / "data.mdb", std::ios::binary) << left;
            inProcess([&] {
                power_is_unsafe = false;
                setenv("NVRAM_DIR", (folder / "left").c_str(), 1);
                EXPECT_EQ(get("name"), "saved") << later;
                expectWorkingStore();
            });
            set("later " + std::to_string(later % 7), std::string(random() % 9000, 'x'));
        }
    });
}

TEST_F(Nvram, KilledReadersLeaveRoomForTheNext) {
    inProcess([] { // keeps the store in use throughout
        set("name", "value");
        for (int i = 0; i < 600; ++i) // more than it has room for
            statusOf(startProcess([] {
                get("name");
                raise(SIGKILL);
            }));
        inProcess([] { EXPECT_EQ(get("name"), "value"); });
    });
}

TEST_F(Nvram, ManyThreadsReadWhileTheOthersLive) {
    inProcess([] {
        set("name", "value");
        std::latch all(300);
        std::vector<std::jthread> threads;
        for (int i = 0; i < 300; ++i)
            threads.emplace_back([&] {
                EXPECT_EQ(get("name"), "value");
                all.arrive_and_wait();
            });
    });
}

// It looks at the file before it opens it: first at the newest states, four readings, then at
// pages, which may have others in their place by then.
TEST_F(Nvram, AStoreMayChangeWhileAnotherProcessOpensIt) {
    for (const int preads : {0, 4})
        inProcess([preads] {
            const pid_t other = startProcess([] {
                set("large", "value");
                raise(SIGSTOP);
                for (std::size_t size = 1000; size <= 60000; size += 1000)
                    EXPECT_EQ(set("large", std::string(size, 'x')), 0);
            });
            waitpid(other, nullptr, WUNTRACED);
            before_pread = [other] {
                kill(other, SIGCONT);
                EXPECT_EQ(statusOf(other), 0);
            };
            preads_left = preads;
#ifndef __LP64__
            before_pread();
#endif
            EXPECT_EQ(get("large").size(), 60000U) << preads;
        });
}

TEST_F(Nvram, AStoreWhoseCreatorWasKilledIsBegunAnew) {
    inProcess([] { set("name", "value"); });
    std::filesystem::resize_file(folder / "data.mdb", 4096);
    inProcess(expectWorkingStore);
}

TEST_F(Nvram, AProgramWithoutStandardOutputPrintsIntoNoStore) {
    inProcess([] {
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            close(descriptor);
        set("name", "value");
        for (const char *stream : {"/proc/self/fd/0", "/proc/self/fd/1", "/proc/self/fd/2"})
            EXPECT_EQ(std::filesystem::read_symlink(stream), "/dev/null");
    });
}

TEST_F(Nvram, AFullStoreRefusesWhatDoesNotFitAndKeepsTheRest) {
    inProcess([] {
        const std::string large(65536, 'x');
        int stored = 0;
        while (stored < 2000 && set(std::to_string(stored), large) == 0)
            ++stored;
        EXPECT_GT(stored, 500);
        EXPECT_LT(stored, 2000);
        EXPECT_EQ(get("0"), large);
        EXPECT_EQ(set("0", ""), 0);
        expectWorkingStore();
    });
}

// Fills a store with texts of all sizes, and with pages that were given free.
static void fillStore() {
    for (int i = 0; i < 60; ++i)
        set("setting" + std::to_string(i % 40), std::string(i * 97 % 3000, 'v'));
}

TEST_F(Nvram, ADamagedStoreIsToldOfAndEndsNoProcess) {
    inProcess(fillStore);
    const std::string good = contents(folder / "data.mdb");
    ASSERT_GT(good.size(), 20U * 4096);
    int told = 0;
    for (std::size_t page = 0; page < good.size() / 4096; ++page) {
        std::string damaged = good;
        if (page % 3 == 0)
            damaged.resize(page * 4096 + 2000);
        else
            damaged.replace(page * 4096, 200, 200, page % 3 == 1 ? '\0' : '\x7f');
        std::ofstream(folder / "data.mdb", std::ios::binary) << damaged;
        const pid_t process = startProcess([&] {
            testing::internal::CaptureStderr();
            for (int i = 0; i < 40; ++i)
                get("setting" + std::to_string(i));
            const int result = set("more", "x");
            const std::string said = testing::internal::GetCapturedStderr();
            EXPECT_EQ(std::ranges::count(said, '\n'), result == 0 ? 0 : 1) << said;
            _exit(testing::Test::HasFailure() ? 1 : 0);
        });
        EXPECT_EQ(statusOf(process), 0) << page;
        told += contents(folder / "data.mdb") == damaged ? 1 : 0; // it was left as it is
    }
    EXPECT_GT(told, 10);
}

TEST_F(Nvram, AStoreThatIsCutWhileItIsOpenEndsNoProcess) {
    inProcess([this] {
        fillStore();
        EXPECT_NE(get("setting5"), "");
        std::filesystem::resize_file(folder / "data.mdb", 3 * 4096);
        usleep(200'000); // twice as long as a look at the file's length is good for
        EXPECT_EQ(get("setting5"), "");
        EXPECT_EQ(get("setting5"), "");
        EXPECT_EQ(set("name", "value"), -1);
    });
}

TEST_F(Nvram, CommandsInheritNothingOfTheStore) {
    inProcess([] {
        expectWorkingStore();
        EXPECT_NE(system("ls -l /proc/self/fd | grep -q mdb"), 0);
    });
}

TEST_F(Nvram, AStoreOfOtherBytesIsRefusedLeftAsItIsAndOpenedWhenItIsGone) {
    for (const std::size_t size : {1, 100, 4096, 100000}) {
        const std::string garbage(size, 'g');
        std::ofstream(folder / "data.mdb", std::ios::binary) << garbage;
        inProcess([&] {
            errno = EXDEV;
            EXPECT_EQ(get("name"), "");
            EXPECT_EQ(kelpNvramConfig_match("name", ""), 1);
            EXPECT_EQ(set("name", "value"), -1);
            EXPECT_EQ(kelpNvramConfig_save(), -1);
            EXPECT_EQ(errno, EXDEV);
            EXPECT_EQ(contents(folder / "data.mdb"), garbage);
            std::filesystem::remove(folder / "data.mdb");
            expectWorkingStore();
        });
    }
}
