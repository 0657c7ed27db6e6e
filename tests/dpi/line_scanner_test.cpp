#include "dpi/line_scanner.h"

#include <gtest/gtest.h>

#include <cstdio>
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
    for (const char *line : {"",
                             ",",
                             "1",
                             "1,",
                             "1,2,",
                             "1,2,abcdefgh",
                             "1,2,0a",
                             "1,2,a\\b",
                             "1,2, a b",
                             " 1,\t2,x",
                             "1 ,2,x",
                             "+1,-2,x",
                             "- 1,2,x",
                             "--1,2,x",
                             "0x1,2,x",
                             "010,2,x",
                             "a,2,x",
                             "1;2,x",
                             "2147483647,4294967295,x",
                             "-2147483648,-4294967295,x"})
        EXPECT_EQ(scanned(line), expected(line)) << line;
}

TEST(LineScanner, NumbersOutOfRangeSaturate) {
    EXPECT_EQ(scanned("2147483648,4294967296,x"), "2147483647,4294967295,x");
    EXPECT_EQ(scanned("-2147483649,-4294967296,x"), "2147483648,4294967295,x");
    EXPECT_EQ(scanned("42949672960,42949672960,x"), "2147483647,4294967295,x");
}
