#include "sysutil/firmware_update.h"

#include "support/faults.h"
#include "support/fixture.h"

#include <filesystem>

namespace {

using ImageComparison = rig::Fixture;

// The result and the log.
std::pair<int, std::string> compare(const std::string &a, const std::string &b) {
    rig::writeFile("/tmp/a", a);
    rig::writeFile("/tmp/b", b);
    rig::writeFile("/tmp/dbg_log", "");
    const int result = compare_two_binary_files("/tmp/a", "/tmp/b");
    return {result, rig::readFile("/tmp/dbg_log")};
}

const std::string kStart = "\ncompare_two_binary_files: /tmp/a vs /tmp/b\r\n";

TEST_F(ImageComparison, EveryDifferingByteIsCountedAndLogged) {
    std::string b(70000, 'a');
    b[0] = 'A';
    b[16383] = '\xff';
    b[16384] = '\0';
    b[69999] = 'z';
    const std::string was = "\t/tmp/a:\t0x61\ta\n\t/tmp/b:\t0x";
    const std::string log = kStart + "File size = 70000\nDifference at 0x0000.\n" + was +
                            "41\tA\nDifference at 0x3FFF.\n" + was +
                            "FF\t\xff\nDifference at 0x4000.\n" + was + "00\t" + '\0' +
                            "\nDifference at 0x1116F.\n" + was + "7A\tz\n\nCount of diff= 4\n\n";
    EXPECT_EQ(compare(std::string(70000, 'a'), b), std::pair(4, log));
    const rig::Fault shrunk(rig::Call::kRead, 1); // what the first can't give any more
    EXPECT_EQ(compare("\xff", "a").first + compare("a", "a").first, 1);
}

TEST_F(ImageComparison, WhatCannotBeComparedIsToldByTheLog) {
    EXPECT_EQ(compare("1234", "12345"),
              std::pair(1, kStart + "\nFile Compare Result: file size different 4/5\n\n"));
    EXPECT_EQ(compare_two_binary_files("/tmp/a", "/tmp/none"), 0);
    EXPECT_EQ(rig::readFile("/dev/console"), "Stat file error in file /tmp/a, /tmp/none\r\n");
    std::filesystem::remove("/tmp/dbg_log");
    std::filesystem::create_directory("/tmp/dbg_log");
    rig::writeFile("/tmp/b", "5678");
    EXPECT_EQ(compare_two_binary_files("/tmp/a", "/tmp/b"), 4) << "without a place for its log";
    for (const std::size_t opening : {3, 4}) { // each file, after the console
        const rig::Fault unopened(rig::Call::kOpen, opening);
        EXPECT_EQ(compare_two_binary_files("/tmp/a", "/tmp/b"), 0);
    }
}

} // namespace
