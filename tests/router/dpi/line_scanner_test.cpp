#include "dpi/line_scanner.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

namespace {

struct Fields {
    uint32_t first = 7;
    uint32_t second = 8;
    char text[6] = "kept";
};

std::string shown(const Fields &fields) {
    return std::to_string(fields.first) + "," + std::to_string(fields.second) + "," + fields.text;
}

// By the system library's own scan, which is defined while the numbers are in range.
std::string expected(const char *line) {
    Fields fields;
    static_cast<void>(sscanf(line, "%d,%u,%5[^\\0]", reinterpret_cast<int *>(&fields.first),
                             &fields.second, fields.text));
    return shown(fields);
}

std::string scanned(const char *line) {
    Fields fields;
    LineScanner scan(line);
    scan.signed_number(fields.first).literal(',').number(fields.second).literal(',');
    scan.text_until("\\0", fields.text);
    return shown(fields);
}

} // namespace

TEST(LineScanner, StopsWhereTheSystemLibrarysScanStops) {
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i) {
        std::string line(random() % 10, '\0'); // no room for a number that is out of range
        for (char &each : line)
            each = "12,,,+- \t0x\\a"[random() % 13];
        if (i % 2 == 0)
            line.insert(0, "1,2,");
        EXPECT_EQ(scanned(line.c_str()), expected(line.c_str())) << line;
    }
}

TEST(LineScanner, NumbersOutOfRangeSaturate) {
    EXPECT_EQ(scanned("2147483648,4294967295,x"), "2147483647,4294967295,x");
    EXPECT_EQ(scanned("-2147483649,-4294967295,x"), "2147483648,1,x");
    EXPECT_EQ(scanned("42949672960,42949672960,x"), "2147483647,4294967295,x");
}
