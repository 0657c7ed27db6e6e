#include "sysutil/firmware_update.h"

#include "support/fixture.h"

#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

class ImageComparison : public rig::Fixture {
  protected:
    // The result and the log.
    static std::pair<int, std::string> compare(const std::string &a, const std::string &b) {
        rig::writeFile("/tmp/a", a);
        rig::writeFile("/tmp/b", b);
        std::filesystem::remove("/tmp/dbg_log");
        const int result = compare_two_binary_files("/tmp/a", "/tmp/b");
        return {result, rig::readFile("/tmp/dbg_log")};
    }
    static std::string console() { return rig::readFile("/dev/console"); }
};

const std::string kStart = "\ncompare_two_binary_files: /tmp/a vs /tmp/b\r\n";

TEST_F(ImageComparison, EveryDifferingByteIsCountedAndLogged) {
    EXPECT_EQ(compare("", ""), std::pair(0, kStart + "File size = 0\n\nCount of diff= 0\n\n"));
    const std::string a(70000, 'a');
    std::string b = a;
    EXPECT_EQ(compare(a, b).first, 0);
    b[0] = 'A';
    b[16383] = '\xff';
    b[16384] = '\0';
    b[69999] = 'z';
    const std::string was = "\t/tmp/a:\t0x61\ta\n\t/tmp/b:\t0x";
    EXPECT_EQ(compare(a, b), std::pair(4, kStart + "File size = 70000\nDifference at 0x0000.\n" +
                                              was + "41\tA\nDifference at 0x3FFF.\n" + was +
                                              "FF\t\xff\nDifference at 0x4000.\n" + was + "00\t" +
                                              '\0' + "\nDifference at 0x1116F.\n" + was +
                                              "7A\tz\n\nCount of diff= 4\n\n"));
    EXPECT_EQ(console(), "\nCount of diff= 4\n\n") << "opened anew for each message";
}

TEST_F(ImageComparison, WhatCannotBeComparedIsToldByTheLog) {
    EXPECT_EQ(compare("1234", "12345"),
              std::pair(1, kStart + "\nFile Compare Result: file size different 4/5\n\n"));
    EXPECT_EQ(compare_two_binary_files("/tmp/a", "/tmp/none"), 0);
    EXPECT_EQ(console(), "Stat file error in file /tmp/a, /tmp/none\r\n");
    // The size of a socket's file can be told, but it cannot be opened.
    const int owner = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, "/tmp/socket"};
    ASSERT_EQ(bind(owner, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    close(owner);
    rig::writeFile("/tmp/a", "");
    EXPECT_EQ(compare_two_binary_files("/tmp/a", "/tmp/socket"), 0);
    EXPECT_EQ(console(), "\nError in opening file /tmp/socket\r\n");
    EXPECT_EQ(compare_two_binary_files("/tmp/socket", "/tmp/a"), 0);
    EXPECT_EQ(console(), "\nError in opening file /tmp/socket\r\n");
}

TEST_F(ImageComparison, ADestinationThatCannotBeOpenedIsSkipped) {
    std::filesystem::create_directories("/tmp/dbg_log");
    std::filesystem::create_directories("/dev/console");
    rig::writeFile("/tmp/a", "same");
    rig::writeFile("/tmp/b", "sAme");
    EXPECT_EQ(compare_two_binary_files("/tmp/a", "/tmp/b"), 1);
}

} // namespace
