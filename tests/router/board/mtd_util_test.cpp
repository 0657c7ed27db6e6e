#include "board/mtd_util.h"

#include "board/bd_util.h"
#include "router/board/flash_sim.h"
#include "support/faults.h"
#include "support/fixture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using rig::kFlashSize;
using rig::kOldFlash;
using Calls = std::vector<std::string>;

using Mtd = rig::Fixture;

namespace {

constexpr std::uint32_t kBlock64 = 0x10000;
constexpr std::uint32_t kBlock128 = 0x20000;
const std::string kBlankFlash(kFlashSize, '\xff');

std::string pattern(int size) {
    std::string data(static_cast<std::size_t>(size), '\0');
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i % 251);
    return data;
}

// Writes a pattern from exactly its size on the heap, so that a read behind it is caught.
int writePattern(int length) {
    const std::string text = pattern(length);
    const std::vector<unsigned char> data(text.begin(), text.end());
    return mtd_write(rig::kFlashDevice, data.data(), length);
}

} // namespace

TEST_F(Mtd, OpenTakesTheFirstPartitionOfTheNameAndNoOther) {
    rig::writeFile("/dev/mtd4", "");
    const std::pair<std::string, bool> rows[] = {
        {"dev: name\nmtd0: \"boot\"\nmtd4: \"board_data\"\nmtd0: \"board_data\"\n", true},
        {" mtd4: \"board_data\"\nmtd4 \"board_data\"\nmtd: \"board_data\"\n", false},
        {"mtd99999999994: \"board_data\"\nmtd-4: \"board_data\"\n", false},
        {"mtd4: " + std::string(4077, 'x') + "\"board_data\"\n", true}, // a line of 4,095
        {"mtd4: " + std::string(4089, 'x') + "\"board_data\"\n", false}};
    for (const auto &[list, opens] : rows) {
        rig::writeFile("/proc/mtd", list);
        const int descriptor = mtd_open("board_data", O_RDONLY);
        EXPECT_EQ(descriptor >= 0, opens) << list;
        close(descriptor);
    }
    EXPECT_EQ(mtd_open("", O_RDONLY), -1) << "it is part of every line";
}

TEST_F(Mtd, AWriteGoesBlockByBlockAndFillsUpItsLastChunk) {
    Calls calls;
    for (const std::uint32_t eraseSize : {kBlock64, kBlock128}) {
        for (const std::uint32_t length : {0u, 1u, kFlashSize, kBlock64 + 1, kBlock64}) {
            const rig::FlashSim flash(eraseSize);
            EXPECT_EQ(writePattern(static_cast<int>(length)), 0);
            std::string expected = pattern(static_cast<int>(length));
            expected.resize((length + eraseSize - 1) / eraseSize * eraseSize, '\xff');
            EXPECT_TRUE(flash.contents() == expected + kOldFlash.substr(expected.size()));
            calls = flash.calls;
        }
    }
    // No longer than asked.
    EXPECT_EQ(calls, (Calls{"info", "unlock 0", "erase 0", "write 65536", "read 10"}));
}

TEST_F(Mtd, AGeometryOrLengthThatCannotBeRightIsRefusedBeforeAnyErase) {
    const std::vector<unsigned char> data(kFlashSize + 1, 'n');
    // Size of an erase block, of the partition, of the data; whether mtd_erase, which has no data,
    // refuses too.
    const std::tuple<std::uint32_t, std::uint32_t, int, bool> rows[] = {
        {kBlock64, kFlashSize, -1, false},
        {kBlock64, kFlashSize, kFlashSize + 1, false},
        {kBlock64, kFlashSize - 1, kFlashSize - 1, true},
        {0xFFFF0000, kFlashSize, kBlock64, true},
        {0, kFlashSize, kBlock64, true}};
    for (const auto &[eraseSize, size, length, eraseToo] : rows) {
        const rig::FlashSim flash(eraseSize, size);
        EXPECT_EQ(mtd_write(rig::kFlashDevice, data.data(), length), -1);
        EXPECT_TRUE(flash.contents() == kOldFlash) << length;
        EXPECT_EQ(mtd_erase(rig::kFlashDevice), eraseToo ? EINVAL : 0);
        EXPECT_TRUE(flash.contents() == (eraseToo ? kOldFlash : kBlankFlash));
    }
}

TEST_F(Mtd, AnImageThatIsTooShortOrUnreadableIsNotTaken) {
    const std::vector<unsigned char> untouched(MTD_IMAGE_SIZE, 'u');
    std::vector<unsigned char> image = untouched;
    rig::writeFile("/dev/mtdblock9", std::string(MTD_IMAGE_SIZE - 1, 'i'));
    EXPECT_EQ(read_mtd_data(image.data(), "/dev/mtdblock9"), -1);
    rig::writeFile("/dev/mtdblock9", std::string(MTD_IMAGE_SIZE, 'i'));
    for (const std::size_t page : {1, MTD_IMAGE_SIZE / 4096}) { // would kill through a mapping
        const rig::Fault unreadable(rig::Call::kRead, page);
        const auto run = [&] { EXPECT_EQ(read_mtd_data(image.data(), "/dev/mtdblock9"), -1); };
        EXPECT_EQ(rig::standardError(run), "/dev/mtdblock9: Input/output error\n");
        EXPECT_TRUE(image == untouched);
    }
    EXPECT_EQ(read_mtd_data(image.data(), "/dev/mtdblock9"), 0);
    EXPECT_EQ(image.back(), 'i');
}

namespace {

struct Operation {
    const char *name;
    int failure; // the result of a failed call
    std::function<int()> run;
};

// Every way to the flash: what else writes goes through one of these.
const Operation kOperations[] = {{"mtd_erase", EIO, [] { return mtd_erase(rig::kFlashDevice); }},
                                 {"mtd_write", -1, [] { return writePattern(200001); }},
                                 {"bd_write_sn", -1, [] { return bd_write_sn("SN1"); }},
                                 {"bd_write_sku_info", -1, [] { return bd_write_sku_info(5); }},
                                 {"bd_write_ssid", -1, [] { return bd_write_ssid("name", 2); }}};

// NOR, which is locked, and two kinds of NAND.
struct Geometry {
    std::uint32_t eraseSize;
    std::uint32_t pageSize;
};
constexpr Geometry kGeometries[] = {{kBlock64, 1}, {0x8000, 512}, {kBlock128, 2048}};

// Fails one request of an operation, or all from there on as when the power goes; good is what the
// operation leaves when all goes well. Gives whether there was such a request.
bool failRequest(const Operation &operation, const Geometry &geometry, std::size_t call,
                 bool forGood, bool halfDone, const std::string &good) {
    rig::FlashSim flash(geometry.eraseSize);
    flash.pageSize = geometry.pageSize;
    flash.locks = geometry.pageSize == 1;
    flash.failingCall = call;
    flash.halfDone = halfDone;
    flash.forGood = forGood;
    int result = 0;
    const std::string printed = rig::standardError([&] { result = operation.run(); });
    const std::string failed = flash.calls.size() < call ? "none" : flash.calls[call - 1];
    SCOPED_TRACE(operation.name + (", " + failed));
    // As on chips without locks; and nothing hangs on what the closing read gives.
    const bool unlocking = failed.starts_with("unlock") && !flash.locks && !forGood;
    const bool ignored = unlocking || failed == "none" || failed.starts_with("read");
    EXPECT_EQ(result, ignored ? 0 : operation.failure);
    EXPECT_EQ(printed, ignored ? "" : "/dev/mtd4: Input/output error\n");
    const std::size_t intact = ignored ? kFlashSize : flash.lastErase;
    const std::size_t untouched = intact + (failed.starts_with("write") ? geometry.eraseSize : 0);
    const std::string found = flash.contents();
    EXPECT_TRUE(found.starts_with(good.substr(0, intact)));
    EXPECT_TRUE(found.substr(untouched) == kOldFlash.substr(untouched));
    char name[33] = "name";
    flash.forGood = false;
    EXPECT_TRUE(bd_read_ssid(name, sizeof name, 2) == -1 || strcmp(name, "name") == 0);
    return failed != "none";
}

std::string afterwards(const Operation &operation, std::uint32_t eraseSize) {
    const rig::FlashSim flash(eraseSize);
    EXPECT_EQ(operation.run(), 0) << operation.name;
    return flash.contents();
}

} // namespace

TEST_F(Mtd, AFailureOfAnyRequestIsReportedAndDamagesNothingBehindIt) {
    for (const Operation &operation : kOperations) {
        for (const Geometry &geometry : kGeometries) {
            const std::string good = afterwards(operation, geometry.eraseSize);
            for (const auto &[forGood, halfDone] :
                 {std::pair{false, false}, {false, true}, {true, true}}) {
                for (std::size_t call = 1;
                     failRequest(operation, geometry, call, forGood, halfDone, good);)
                    ++call;
            }
        }
    }
}

TEST_F(Mtd, AnyOtherFailureIsReportedAndTheFlashIsTheOldOneUnlessItWasErased) {
    for (const Operation &operation : kOperations) {
        const std::string good = afterwards(operation, kBlock64);
        std::optional<rig::FlashSim> flash;
        int result = 0;
        const auto prepare = [&] {
            flash.reset();
            flash.emplace(kBlock64);
        };
        const auto check = [&](rig::Call) {
            const auto isErase = [](auto &call) { return call.starts_with("erase"); };
            const std::string found = rig::FlashSim::contents();
            EXPECT_TRUE(result == 0
                            ? found == good
                            : found == kOldFlash || std::ranges::any_of(flash->calls, isErase))
                << operation.name;
        };
        rig::failEveryCall(
            prepare, [&] { result = operation.run(); }, check);
    }
}

TEST_F(Mtd, NandTakesWholePagesAndABadBlockStopsWhatComesToIt) {
    rig::FlashSim flash(0x4000);
    flash.pageSize = 512;
    EXPECT_EQ(writePattern(700), -1);
    EXPECT_EQ(writePattern(1024), 0);
    flash.badBlock = 0x8000;
    EXPECT_EQ(writePattern(0x10000), -1);
    EXPECT_TRUE(flash.contents() == pattern(0x8000) + kOldFlash.substr(0x8000));
    EXPECT_EQ(mtd_erase(rig::kFlashDevice), EIO);
}
