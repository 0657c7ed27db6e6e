#include "platform/nvram.h"

#include "sim/own_store.h"

#include <array>
#include <atomic>
#include <csignal>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {
class Nvram : public OwnStore {};

std::string contents(const std::filesystem::path &file) {
    std::ostringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    return bytes.str();
}

// What a loss of power cannot take any more, while a test asks for it.
bool power_is_unsafe = false;
std::string on_disk;

int set(const std::string &name, const std::string &value) {
    return kelpNvramConfig_set(name.c_str(), value.c_str());
}

std::string get(const std::string &name) {
    return kelpNvramConfig_get(name.c_str());
}

void expectNoStore() {
    EXPECT_STREQ(kelpNvramConfig_get("name"), "");
    EXPECT_EQ(kelpNvramConfig_match("name", ""), 1);
    EXPECT_EQ(kelpNvramConfig_match("name", "value"), 0);
    EXPECT_EQ(kelpNvramConfig_set("name", "value"), -1);
    EXPECT_EQ(kelpNvramConfig_save(), -1);
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

TEST_F(Nvram, NamesAndValuesAreTakenUpToTheirLimitsAndMatchedExactly) {
    inProcess([] {
        const std::string name(511, 'n');
        const std::string value(65536, 'v');
        EXPECT_EQ(set(name, value), 0);
        EXPECT_EQ(set(name, value + "v"), -1);
        EXPECT_EQ(get(name), value);
        for (const std::string &refused : {std::string(), name + "n"}) {
            EXPECT_EQ(set(refused, "x"), -1);
            EXPECT_EQ(get(refused), "");
            EXPECT_EQ(kelpNvramConfig_match(refused.c_str(), ""), 1);
        }
        EXPECT_STREQ(kelpNvramConfig_get(nullptr), "");
        EXPECT_EQ(kelpNvramConfig_set(nullptr, "x"), -1);
        EXPECT_EQ(kelpNvramConfig_set("x", nullptr), -1);
        EXPECT_EQ(kelpNvramConfig_match(nullptr, ""), 0);
        EXPECT_EQ(kelpNvramConfig_match("x", nullptr), 0);

        set("ten", "10");
        for (const char *other : {"", "1", "100", "10 "})
            EXPECT_EQ(kelpNvramConfig_match("ten", other), 0) << other;
        EXPECT_EQ(kelpNvramConfig_match("ten", "10"), 1);
        set("ten", "");
        EXPECT_EQ(kelpNvramConfig_match("ten", ""), 1);
    });
}

TEST_F(Nvram, ATextStaysValidUntilItsThreadHasRead16More) {
    inProcess([] {
        const auto value = [](int i) { return std::string(i * 4096 + 1, 'a'); };
        for (int i = 0; i < 16; ++i)
            set(std::to_string(i), value(i));
        for (int round = 0; round < 3; ++round) {
            std::array<const char *, 16> texts;
            for (int i = 0; i < 16; ++i)
                texts[i] = kelpNvramConfig_get(std::to_string((i + round) % 16).c_str());
            std::thread([] {
                for (int i = 0; i < 40; ++i)
                    get("15");
            }).join();
            for (int i = 0; i < 16; ++i)
                EXPECT_EQ(texts[i], value((i + round) % 16));
        }
    });
}

TEST_F(Nvram, ProcessesSeeEachOthersChangesAtOnce) {
    const auto play = [](int first) {
        for (int turn = first; turn < 200; turn += 2) {
            while (get("turn") != std::string(turn, 'x'))
                std::this_thread::yield();
            EXPECT_EQ(set("turn", std::string(turn + 1, 'x')), 0);
        }
    };
    const pid_t other = startProcess([&] { play(1); });
    inProcess([&] { play(0); });
    EXPECT_EQ(statusOf(other), 0);
}

TEST_F(Nvram, AChildOpensTheStoreAnewAndItsParentKeepsItsOwn) {
    inProcess([this] {
        set("name", "parent");
        inProcess([this] {
            setenv("NVRAM_DIR", (folder / "a" / "b").c_str(), 1);
            EXPECT_EQ(get("name"), "");
            EXPECT_EQ(set("name", "child"), 0);
            inProcess([] { EXPECT_EQ(get("name"), "child"); });
            EXPECT_EQ(get("name"), "child");
        });
        inProcess([] { EXPECT_EQ(set("other", get("name")), 0); });
        EXPECT_EQ(get("name") + get("other"), "parentparent");
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
static std::string afterLossOfPower(const std::string &now, std::mt19937 &random) {
    constexpr std::size_t kPage = 4096;
    std::string left = on_disk;
    left.resize(now.size());
    for (std::size_t at = 0; at < now.size(); at += kPage)
        if (random() % 2 == 0)
            left.replace(at, kPage, now, at, kPage);
    return left;
}

TEST_F(Nvram, WhatWasSavedOutlivesALossOfPowerAtAnyLaterMoment) {
    const auto value = [](int i) { return std::string(i * 150, static_cast<char>('a' + i)); };
    inProcess([&] {
        power_is_unsafe = true;
        for (int i = 0; i < 26; ++i)
            set(std::to_string(i), value(i));
        kelpNvramConfig_save();
        std::filesystem::create_directory(folder / "left");
        std::mt19937 random(1);
        for (int later = 0; later < 40; ++later) {
            set("later " + std::to_string(later % 7), std::string(random() % 9000, 'x'));
            std::ofstream(folder / "left" / "data.mdb", std::ios::binary)
                << afterLossOfPower(contents(folder / "data.mdb"), random);
            inProcess([&] {
                power_is_unsafe = false;
                setenv("NVRAM_DIR", (folder / "left").c_str(), 1);
                for (int i = 0; i < 26; ++i)
                    EXPECT_EQ(get(std::to_string(i)), value(i));
                expectWorkingStore();
            });
        }
    });
}

TEST_F(Nvram, KilledReadersLeaveRoomForTheNext) {
    inProcess([] { // keeps the store in use throughout
        set("name", "value");
        for (int i = 0; i < 150; ++i)
            EXPECT_EQ(statusOf(startProcess([] {
                          get("name");
                          raise(SIGKILL);
                      })),
                      -SIGKILL);
        inProcess([] { EXPECT_EQ(get("name"), "value"); });
    });
}

TEST_F(Nvram, AStoppedProcessDoesNotKeepOldValuesAlive) {
    const pid_t stopped = startProcess([] {
        get("name");
        raise(SIGSTOP);
    });
    int status = 0;
    ASSERT_EQ(waitpid(stopped, &status, WUNTRACED), stopped);
    inProcess([] {
        for (int i = 0; i < 50; ++i)
            ASSERT_EQ(set("name", std::string(65536, static_cast<char>('a' + i % 26))), 0) << i;
    });
    kill(stopped, SIGKILL);
    EXPECT_EQ(statusOf(stopped), -SIGKILL);
    EXPECT_LT(std::filesystem::file_size(folder / "data.mdb"), 1u << 20);
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
        EXPECT_EQ(get(std::to_string(stored)), "");
        EXPECT_EQ(set("0", ""), 0);
    });
    inProcess(expectWorkingStore);
}

TEST_F(Nvram, AStoreThatCannotBeOpenedReadsAsEmptyUntilItCan) {
    const std::filesystem::path blocked = folder / "blocked";
    for (const auto &place : {blocked, blocked / "below"}) {
        std::ofstream(blocked) << "a file";
        setenv("NVRAM_DIR", place.c_str(), 1);
        inProcess([&] {
            errno = EXDEV;
            expectNoStore();
            EXPECT_EQ(errno, EXDEV);
            std::filesystem::remove(blocked);
            expectWorkingStore();
        });
        std::filesystem::remove_all(blocked);
    }
}

TEST_F(Nvram, AStoreOfOtherBytesIsRefusedAndLeftAsItIs) {
    for (const std::size_t size : {1, 100, 4096, 100000}) {
        std::string garbage(size, '\0');
        std::mt19937 random(static_cast<unsigned int>(size));
        for (char &byte : garbage)
            byte = static_cast<char>(random());
        std::ofstream(folder / "data.mdb", std::ios::binary) << garbage;
        inProcess(expectNoStore);
        EXPECT_EQ(contents(folder / "data.mdb"), garbage);
    }
}
