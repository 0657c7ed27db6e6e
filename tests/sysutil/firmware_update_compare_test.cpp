#include "sysutil/firmware_update.h"

#include "support/fixture.h"

#include <filesystem>
#include <sys/stat.h>

namespace {

class ImageComparison : public rig::Fixture {
  protected:
    // The result and the log.
    static std::pair<int, std::string> compare(const std::string &a, const std::string &b) {
        rig::writeFile("/tmp/a", a);
        rig::writeFile("/tmp/b", b);
        rig::writeFile("/tmp/dbg_log", "");
        const int result = compare_two_binary_files("/tmp/a", "/tmp/b");
        return {result, rig::readFile("/tmp/dbg_log")};
    }
};

const std::string kStart = "\ncompare_two_binary_files: /tmp/a vs /tmp/b\r\n";

TEST_F(ImageComparison, EveryDifferingByteIsCountedAndLogged) {
    EXPECT_EQ(compare("", ""), std::pair(0, kStart + "File size = 0\n\nCount of diff= 0\n\n"));
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
}

TEST_F(ImageComparison, WhatCannotBeComparedIsToldByTheLog) {
    EXPECT_EQ(compare("1234", "12345"),
              std::pair(1, kStart + "\nFile Compare Result: file size different 4/5\n\n"));
    compare("", "");
    mknod("/tmp/socket", S_IFSOCK | 0600, 0); // has a size, but cannot be opened
    for (const auto &[a, b, last] :
         {std::tuple("/tmp/a", "/tmp/none", "Stat file error in file /tmp/a, /tmp/none\r\n"),
          std::tuple("/tmp/a", "/tmp/socket", "\nError in opening file /tmp/socket\r\n"),
          std::tuple("/tmp/socket", "/tmp/a", "\nError in opening file /tmp/socket\r\n")}) {
        EXPECT_EQ(compare_two_binary_files(a, b), 0);
        EXPECT_EQ(rig::readFile("/dev/console"), last) << "opened anew for each message";
    }
    for (const char *destination : {"/tmp/dbg_log", "/dev/console"}) {
        std::filesystem::remove(destination);
        std::filesystem::create_directories(destination);
    }
    rig::writeFile("/tmp/a", "x");
    rig::writeFile("/tmp/b", "y");
    EXPECT_EQ(compare_two_binary_files("/tmp/a", "/tmp/b"), 1) << "without a place for its log";
}

} // namespace
