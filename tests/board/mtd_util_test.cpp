#include "board/mtd_util.h"

#include "board/bd_util.h"
#include "board/flash_sim.h"
#include "support/fixture.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

using rig::kFlashSize;
using rig::kOldFlash;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr std::uint32_t kBlock64 = 0x10000;
constexpr std::uint32_t kBlock128 = 0x20000;

// Data of exactly this size on the heap, so that a read behind them is caught.
std::vector<unsigned char> pattern(std::size_t size) {
    std::vector<unsigned char> data(size);
    for (std::size_t i = 0; i < size; ++i)
        data[i] = static_cast<unsigned char>(i % 251);
    return data;
}

std::string text(const std::vector<unsigned char> &data) {
    return {data.begin(), data.end()};
}

class Mtd : public rig::Fixture {};

} // namespace

TEST_F(Mtd, OpenFollowsThePartitionListOrTakesTheNameAsAPath) {
    rig::writeFile("/dev/mtd0", "device 0");
    rig::writeFile("/dev/mtd4", "device 4");
    rig::writeFile("/board_data", "path");
    const struct {
        std::string list, name, opened;
    } rows[] = {
        {"dev: name\nmtd0: \"boot\"\nmtd4: \"board_data\"\nmtd0: \"board_data\"\n", "board_data",
         "device 4"},
        {" mtd4: \"board_data\"\nmtd4 \"board_data\"\nmtd: \"board_data\"\n", "board_data", "path"},
        {"mtd99999999994: \"board_data\"\nmtd-4: \"board_data\"\n", "board_data", "path"},
        {"mtd4: " + std::string(4089, 'x') + "\"board_data\"\n", "board_data", "path"},
        {"mtd5: \"board_data\"\n", "board_data", ""},
        {"mtd0: \"boot\"\n", "", ""},
    };
    for (const auto &row : rows) {
        rig::writeFile("/proc/mtd", row.list);
        const int descriptor = mtd_open(row.name.c_str(), O_RDONLY);
        char content[32] = "";
        [[maybe_unused]] const ssize_t length = read(descriptor, content, sizeof content - 1);
        close(descriptor);
        EXPECT_EQ(content, row.opened) << row.list << row.name;
    }
    EXPECT_EQ(mtd_open(nullptr, O_RDWR), -1);
}

TEST_F(Mtd, AWriteGoesBlockByBlockAndFillsUpItsLastChunk) {
    using Calls = std::vector<std::string>;
    const struct {
        std::uint32_t eraseSize;
        int length;
        Calls calls; // between the request for the geometry and the closing read
        std::size_t erased;
    } rows[] = {
        {kBlock128, 0, {}, 0},
        {kBlock64, 65536, {"unlock 0", "erase 0", "write 65536"}, kBlock64},
        {kBlock128, 65536, {"unlock 0", "erase 0", "write 65536"}, kBlock128},
        {kBlock64,
         65537,
         {"unlock 0", "erase 0", "write 65536", "unlock 65536", "erase 65536", "write 65536"},
         2 * kBlock64},
    };
    for (const auto &row : rows) {
        rig::FlashSim flash(row.eraseSize);
        const auto data = pattern(static_cast<std::size_t>(row.length));
        EXPECT_EQ(mtd_write(rig::kFlashDevice, data.data(), row.length), 0);
        Calls expected = row.calls;
        expected.insert(expected.begin(), "info");
        expected.emplace_back("read 10");
        EXPECT_EQ(flash.calls(), expected);
        EXPECT_TRUE(flash.contents() == text(data) + std::string(row.erased - data.size(), '\xff') +
                                            kOldFlash.substr(row.erased));
    }
}

TEST_F(Mtd, AGeometryOrLengthThatCannotBeRightIsRefusedBeforeAnyErase) {
    const std::vector<unsigned char> data(kFlashSize + 1, 'n');
    const struct {
        std::uint32_t eraseSize, size;
        int length;
        bool eraseFailsToo; // it knows no length, only the geometry
    } rows[] = {
        {kBlock64, kFlashSize, -1, false},
        {kBlock64, kFlashSize, kFlashSize + 1, false},
        {kBlock64, 0, 1, false},
        {kBlock64, kFlashSize - 1, kFlashSize - 1, true},
        {kBlock128, kBlock64, kBlock64, true},
        {0xFFFF0000, kFlashSize, kBlock64, true},
        {0, kFlashSize, kBlock64, true},
    };
    for (const auto &row : rows) {
        const rig::FlashSim flash(row.eraseSize, row.size);
        const std::string printed = rig::standardError([&] {
            EXPECT_EQ(mtd_write(rig::kFlashDevice, data.data(), row.length), -1);
            EXPECT_EQ(row.eraseFailsToo ? mtd_erase(rig::kFlashDevice) : EINVAL, EINVAL);
        });
        EXPECT_TRUE(printed.starts_with("/dev/mtd4: Invalid argument\n")) << printed;
        EXPECT_TRUE(flash.contents() == kOldFlash) << row.length;
    }
    const rig::FlashSim flash(kBlock64);
    EXPECT_EQ(mtd_write(rig::kFlashDevice, nullptr, kBlock64), -1);
    EXPECT_EQ(mtd_write(nullptr, data.data(), kBlock64), -1);
    EXPECT_TRUE(flash.contents() == kOldFlash);
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
    rig::writeFile("/dev/mtdblock9", text(pattern(MTD_IMAGE_SIZE)) + "more");
    EXPECT_EQ(read_mtd_data(image.data(), "/dev/mtdblock9"), 0);
    EXPECT_EQ(image, pattern(MTD_IMAGE_SIZE));
    rig::writeFile("/dev/mtdblock9", std::string(MTD_IMAGE_SIZE - 1, 'x'));
    EXPECT_EQ(read_mtd_data(image.data(), "/dev/mtdblock9"), -1);
    EXPECT_EQ(image, pattern(MTD_IMAGE_SIZE));
    EXPECT_EQ(rig::standardError([&] { EXPECT_EQ(read_mtd_data(image.data(), "none"), -1); }),
              "open: No such file or directory\n");
}

namespace {

struct Operation {
    const char *name;
    int failure; // the result of a failed open or call
    std::function<int()> run;
};

std::vector<Operation> operations() {
    const auto write = [](int length) {
        return [length] { return mtd_write(rig::kFlashDevice, pattern(262144).data(), length); };
    };
    return {
        {"mtd_erase", EIO, [] { return mtd_erase(rig::kFlashDevice); }},
        {"mtd_write of one chunk", -1, write(65536)},
        {"mtd_write of whole blocks", -1, write(262144)},
        {"mtd_write of a part", -1, write(200001)},
        {"bd_write_sn", -1, [] { return bd_write_sn("SN1"); }},
        {"bd_write_sw_feature", -1, [] { return bd_write_sw_feature("f"); }},
        {"bd_write_hw_rev", -1, [] { return bd_write_hw_rev("r"); }},
        {"bd_write_board_id", -1, [] { return bd_write_board_id("id"); }},
        {"bd_write_eth_mac", -1,
         [] { return bd_write_eth_mac(pattern(6).data(), pattern(6).data()); }},
        {"bd_write_pin", -1, [] { return bd_write_pin("12345670"); }},
        {"bd_write_sku_info", -1, [] { return bd_write_sku_info(5); }},
        {"bd_write_record", -1, [] { return bd_write_record(2, "data", 4); }},
        {"bd_write_ssid", -1, [] { return bd_write_ssid("name", 2); }},
        {"bd_write_passphrase", -1, [] { return bd_write_passphrase("long enough", 2); }},
    };
}

// The start of the block that the last erase of these calls is about.
std::size_t lastBlock(const std::vector<std::string> &calls) {
    std::size_t start = 0;
    for (const std::string &call : calls) {
        if (call.starts_with("erase "))
            start = std::stoul(call.substr(6));
    }
    return start;
}

struct GoodRun {
    std::vector<std::string> calls;
    std::string left;
};

GoodRun runWell(const Operation &operation, std::uint32_t eraseSize) {
    rig::FlashSim flash(eraseSize);
    EXPECT_EQ(operation.run(), 0);
    return {flash.calls(), flash.contents()};
}

void failCall(const Operation &operation, std::uint32_t eraseSize, rig::FlashFault fault,
              const GoodRun &good) {
    const std::string &failing = good.calls[static_cast<std::size_t>(fault.call) - 1];
    SCOPED_TRACE(std::string(operation.name) + ", " + failing);
    rig::FlashSim flash(eraseSize);
    flash.fail(fault);
    if (failing.starts_with("unlock") || failing.starts_with("read")) {
        EXPECT_EQ(operation.run(), 0);
        EXPECT_EQ(flash.calls(), good.calls);
        EXPECT_TRUE(flash.contents() == good.left);
        return;
    }
    EXPECT_EQ(rig::standardError([&] { EXPECT_EQ(operation.run(), operation.failure); }),
              "/dev/mtd4: Input/output error\n");
    const std::string left = flash.contents();
    const bool untouched = failing == "info" || (failing == "erase 0" && !fault.halfDone);
    EXPECT_TRUE(!untouched || left == kOldFlash);
    const std::size_t start = lastBlock(flash.calls());
    EXPECT_TRUE(left.substr(0, start) == good.left.substr(0, start));
    EXPECT_TRUE(left.substr(start + eraseSize) == kOldFlash.substr(start + eraseSize));
    // But for the closing read nothing follows.
    EXPECT_LE(flash.calls().size(), static_cast<std::size_t>(fault.call) + 1);
}

} // namespace

TEST_F(Mtd, AFailureOfAnyCallIsReportedAndDamagesNothingBehindIt) {
    int points = 0;
    for (const std::uint32_t eraseSize : {kBlock64, kBlock128}) {
        for (const Operation &operation : operations()) {
            const GoodRun good = runWell(operation, eraseSize);
            for (int call = 1; call <= static_cast<int>(good.calls.size()); ++call) {
                const bool isWrite = good.calls[static_cast<std::size_t>(call) - 1][0] == 'w';
                for (const bool halfDone : {false, true}) {
                    failCall(operation, eraseSize, {call, halfDone, false}, good);
                    if (isWrite)
                        failCall(operation, eraseSize, {call, halfDone, true}, good);
                    points += isWrite ? 2 : 1;
                }
            }
        }
    }
    EXPECT_GT(points, 400); // the good runs made as many calls as they should
}

TEST_F(Mtd, AFailedOpenIsReportedAndTouchesNothing) {
    for (const Operation &operation : operations()) {
        for (const char *missing : {rig::kFlashBlockDevice, rig::kFlashDevice}) {
            const bool reads = std::string(operation.name).starts_with("bd_");
            if (missing == rig::kFlashBlockDevice && !reads)
                continue;
            rig::FlashSim flash(kBlock64);
            ASSERT_EQ(unlink(missing), 0);
            EXPECT_THAT(rig::standardError([&] { EXPECT_NE(operation.run(), 0); }),
                        HasSubstr("No such file or directory\n"))
                << operation.name;
            EXPECT_THAT(flash.calls(), IsEmpty());
            EXPECT_TRUE(flash.contents() == kOldFlash);
        }
    }
}
