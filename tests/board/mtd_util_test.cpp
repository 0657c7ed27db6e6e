#include "board/mtd_util.h"

#include "board/bd_util.h"
#include "board/flash_sim.h"
#include "support/fixture.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

using rig::kFlashSize;
using rig::kOldFlash;
using Calls = std::vector<std::string>;

namespace {

constexpr std::uint32_t kBlock64 = 0x10000;
constexpr std::uint32_t kBlock128 = 0x20000;

std::string pattern(std::size_t size) {
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        data[i] = static_cast<char>(i % 251);
    return data;
}

// Writes a pattern from exactly its size on the heap, so that a read behind it is caught.
int writePattern(int length) {
    const std::string text = pattern(static_cast<std::size_t>(length));
    const std::vector<unsigned char> data(text.begin(), text.end());
    return mtd_write(rig::kFlashDevice, data.data(), length);
}

class Mtd : public rig::Fixture {};

} // namespace

TEST_F(Mtd, OpenFollowsThePartitionListOrTakesTheNameAsAPath) {
    rig::writeFile("/dev/mtd0", "device 0");
    rig::writeFile("/dev/mtd4", "device 4");
    rig::writeFile("/board_data", "path");
    const std::array<std::string, 3> rows[] = {
        {"dev: name\nmtd0: \"boot\"\nmtd4: \"board_data\"\nmtd0: \"board_data\"\n", "board_data",
         "device 4"},
        {" mtd4: \"board_data\"\nmtd4 \"board_data\"\nmtd: \"board_data\"\n", "board_data", "path"},
        {"mtd99999999994: \"board_data\"\nmtd-4: \"board_data\"\n", "board_data", "path"},
        {"mtd4: " + std::string(4089, 'x') + "\"board_data\"\n", "board_data", "path"},
        {"mtd5: \"board_data\"\n", "board_data", ""},
        {"mtd0: \"boot\"\n", "", ""}};
    for (const auto &[list, name, opened] : rows) {
        rig::writeFile("/proc/mtd", list);
        const int descriptor = mtd_open(name.c_str(), O_RDONLY);
        char content[32] = "";
        [[maybe_unused]] const ssize_t length = read(descriptor, content, sizeof content - 1);
        close(descriptor);
        EXPECT_EQ(content, opened) << list << name;
    }
}

TEST_F(Mtd, AWriteGoesBlockByBlockAndFillsUpItsLastChunk) {
    const struct {
        std::uint32_t eraseSize;
        int length;
        Calls calls;
        std::size_t erased;
    } rows[] = {
        {kBlock128, 0, {"info", "read 10"}, 0},
        {kBlock128, 65536, {"info", "unlock 0", "erase 0", "write 65536", "read 10"}, kBlock128},
        {kBlock64,
         65537,
         {"info", "unlock 0", "erase 0", "write 65536", "unlock 65536", "erase 65536",
          "write 65536", "read 10"},
         2 * kBlock64}};
    for (const auto &row : rows) {
        const rig::FlashSim flash(row.eraseSize);
        EXPECT_EQ(writePattern(row.length), 0);
        EXPECT_EQ(flash.calls(), row.calls);
        std::string expected = pattern(static_cast<std::size_t>(row.length));
        expected.resize(row.erased, '\xff');
        EXPECT_TRUE(flash.contents() == expected + kOldFlash.substr(row.erased));
    }
}

TEST_F(Mtd, AGeometryOrLengthThatCannotBeRightIsRefusedBeforeAnyErase) {
    const std::vector<unsigned char> data(kFlashSize + 1, 'n');
    const struct {
        std::uint32_t eraseSize, size;
        int length;
        int erased; // by mtd_erase, which knows the geometry only
    } rows[] = {{kBlock64, kFlashSize, -1, 0},
                {kBlock64, kFlashSize, kFlashSize + 1, 0},
                {kBlock64, 0, 1, 0},
                {kBlock64, kFlashSize - 1, kFlashSize - 1, EINVAL},
                {kBlock128, kBlock64, kBlock64, EINVAL},
                {0xFFFF0000, kFlashSize, kBlock64, EINVAL},
                {0, kFlashSize, kBlock64, EINVAL}};
    for (const auto &row : rows) {
        const rig::FlashSim flash(row.eraseSize, row.size);
        const std::string printed = rig::standardError([&] {
            EXPECT_EQ(mtd_write(rig::kFlashDevice, data.data(), row.length), -1);
            EXPECT_TRUE(flash.contents() == kOldFlash) << row.length;
            EXPECT_EQ(mtd_erase(rig::kFlashDevice), row.erased);
        });
        EXPECT_TRUE(printed.starts_with("/dev/mtd4: Invalid argument\n")) << printed;
        EXPECT_TRUE(row.erased == 0 || flash.contents() == kOldFlash);
    }
}

TEST_F(Mtd, AnEraseCoversTheWholeNamedPartition) {
    rig::writeFile("/proc/mtd", "mtd4: 00080000 00010000 \"board_data\"\n");
    for (const std::uint32_t size : {kFlashSize, kFlashSize - kBlock128, 0u}) {
        const rig::FlashSim flash(kBlock128, size);
        EXPECT_EQ(mtd_erase("board_data"), 0);
        EXPECT_TRUE(flash.contents() == std::string(size, '\xff') + kOldFlash.substr(size));
    }
}

TEST_F(Mtd, AnImageIsReadWholeOrNotAtAll) {
    std::vector<unsigned char> image(MTD_IMAGE_SIZE);
    const std::string whole = pattern(MTD_IMAGE_SIZE);
    rig::writeFile("/dev/mtdblock9", whole + "more");
    EXPECT_EQ(read_mtd_data(image.data(), "/dev/mtdblock9"), 0);
    EXPECT_TRUE(std::string(image.begin(), image.end()) == whole);
    rig::writeFile("/dev/mtdblock9", whole.substr(1));
    EXPECT_EQ(read_mtd_data(image.data(), "/dev/mtdblock9"), -1);
    EXPECT_EQ(rig::standardError([&] { EXPECT_EQ(read_mtd_data(image.data(), "none"), -1); }),
              "open: No such file or directory\n");
}

namespace {

struct Operation {
    const char *name;
    int failure; // the result of a failed call
    std::function<int()> run;
};

const unsigned char kMac[6] = {};
// Every way to the flash: what else writes goes through one of these.
const Operation kOperations[] = {
    {"mtd_erase", EIO, [] { return mtd_erase(rig::kFlashDevice); }},
    {"mtd_write of one chunk", -1, [] { return writePattern(65536); }},
    {"mtd_write of whole blocks", -1, [] { return writePattern(262144); }},
    {"mtd_write of a part", -1, [] { return writePattern(200001); }},
    {"bd_write_sn", -1, [] { return bd_write_sn("SN1"); }},
    {"bd_write_pin", -1, [] { return bd_write_pin("12345670"); }},
    {"bd_write_eth_mac", -1, [] { return bd_write_eth_mac(kMac, kMac); }},
    {"bd_write_sku_info", -1, [] { return bd_write_sku_info(5); }},
    {"bd_write_ssid", -1, [] { return bd_write_ssid("name", 2); }}};

// What a run leaves on flash and the calls that it made.
struct Outcome {
    Calls calls;
    std::string left;
};

Outcome run(const Operation &operation, std::uint32_t eraseSize, rig::FlashFault fault,
            int result) {
    rig::FlashSim flash(eraseSize);
    flash.fail(fault);
    const std::string printed =
        rig::standardError([&] { EXPECT_EQ(operation.run(), result) << operation.name; });
    EXPECT_EQ(printed, result == 0 ? "" : "/dev/mtd4: Input/output error\n");
    return {flash.calls(), flash.contents()};
}

void failCall(const Operation &operation, std::uint32_t eraseSize, rig::FlashFault fault,
              const Outcome &good) {
    const std::string &failing = good.calls[static_cast<std::size_t>(fault.call) - 1];
    SCOPED_TRACE(std::string(operation.name) + ", " + failing);
    if (failing.starts_with("unlock") || failing.starts_with("read")) { // changes nothing
        const Outcome ignored = run(operation, eraseSize, fault, 0);
        EXPECT_EQ(ignored.calls, good.calls);
        EXPECT_TRUE(ignored.left == good.left);
        return;
    }
    const Outcome failed = run(operation, eraseSize, fault, operation.failure);
    std::size_t start = 0; // of the block that the last erase was about
    for (const std::string &call : failed.calls) {
        if (call.starts_with("erase "))
            start = std::stoul(call.substr(6));
    }
    const bool untouched = failing == "info" || (failing == "erase 0" && !fault.halfDone);
    EXPECT_TRUE(failed.left.substr(0, start) == good.left.substr(0, start));
    EXPECT_TRUE(failed.left.substr(untouched ? 0 : start + eraseSize) ==
                kOldFlash.substr(untouched ? 0 : start + eraseSize));
    // But for the closing read nothing follows.
    EXPECT_LE(failed.calls.size(), static_cast<std::size_t>(fault.call) + 1);
}

} // namespace

TEST_F(Mtd, AFailureOfAnyCallIsReportedAndDamagesNothingBehindIt) {
    int points = 0;
    for (const std::uint32_t eraseSize : {kBlock64, kBlock128}) {
        for (const Operation &operation : kOperations) {
            const Outcome good = run(operation, eraseSize, {}, 0);
            for (int call = 1; call <= static_cast<int>(good.calls.size()); ++call) {
                failCall(operation, eraseSize, {call, false}, good);
                failCall(operation, eraseSize, {call, true}, good);
                points += 2;
            }
        }
    }
    EXPECT_GT(points, 250); // the good runs made as many calls as they should
}

TEST_F(Mtd, AFailedOpenIsReportedAndTouchesNothing) {
    for (const Operation &operation : kOperations) {
        for (const char *missing : {rig::kFlashDevice, rig::kFlashBlockDevice}) {
            if (missing == rig::kFlashBlockDevice && *operation.name == 'm')
                continue; // it does not read
            const rig::FlashSim flash(kBlock64);
            ASSERT_EQ(unlink(missing), 0);
            EXPECT_THAT(rig::standardError([&] { EXPECT_NE(operation.run(), 0); }),
                        testing::HasSubstr("No such file or directory\n"))
                << operation.name;
            EXPECT_TRUE(flash.calls().empty() && flash.contents() == kOldFlash);
        }
    }
}
