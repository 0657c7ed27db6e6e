#include "dpi/line_scanner.h"

#include <gtest/gtest.h>

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

std::string scanned(const char *line) {
    Fields fields;
    LineScanner scan(line);
    scan.signed_number(fields.first).literal(',').number(fields.second).literal(',');
    scan.text_until("\\0", fields.text);
    return shown(fields);
}

} // namespace

TEST(LineScanner, StopsAtWhatIsNotExpectedAndKeepsWhatItHas) {
    const std::pair<const char *, const char *> rows[] = {
        {" +1,\t-2,ab0c", "1,4294967294,ab"},
        {"1,2,abcdefgh", "1,2,abcde"},
        {"1,2, a\\", "1,2, a"},
        {"1,2,0a", "1,2,kept"},
        {"1,x2,a", "1,8,kept"},
        {"1 ,2,a", "1,8,kept"},
        {"-,2,a", "7,8,kept"},
        {"", "7,8,kept"},
        {"2147483648,4294967295,x", "2147483647,4294967295,x"},
        {"-2147483649,-4294967295,x", "2147483648,1,x"},
        {"42949672960,42949672960,x", "2147483647,4294967295,x"}};
    for (const auto &[line, fields] : rows)
        EXPECT_EQ(scanned(line), fields) << line;
}
