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

// The system library's own scan, which is defined for these lines.
Fields scanned(const std::string &line) {
    Fields fields;
    static_cast<void>(sscanf(line.c_str(), "%d,%u,%5[^\\0]", reinterpret_cast<int *>(&fields.first),
                             &fields.second, fields.text));
    return fields;
}

} // namespace

TEST(LineScanner, StopsWhereTheSystemLibrarysScanStops) {
    for (const char *line : {"",
                             ",",
                             "1",
                             "1,",
                             "1,2",
                             "1,2,",
                             "1,2,abc",
                             "1,2,abcdefgh",
                             "1,2,0a",
                             "1,2,a\\b",
                             "1,2, a b",
                             " 1,\t2,x",
                             "1 ,2,x",
                             "+1,-2,x",
                             "-1,+2,x",
                             "- 1,2,x",
                             "--1,2,x",
                             "0x1,2,x",
                             "010,2,x",
                             "a,2,x",
                             "1;2,x",
                             "2147483647,4294967295,x",
                             "-2147483648,-4294967295,x",
                             "1,2,\n"}) {
        const Fields expected = scanned(line);
        Fields fields;
        LineScanner(line)
            .signed_number(fields.first)
            .literal(',')
            .number(fields.second)
            .literal(',')
            .text_until("\\0", fields.text);
        EXPECT_EQ(fields.first, expected.first) << line;
        EXPECT_EQ(fields.second, expected.second) << line;
        EXPECT_STREQ(fields.text, expected.text) << line;
    }
}

TEST(LineScanner, NumbersOutOfRangeSaturate) {
    struct {
        const char *text;
        uint32_t as_signed;
        uint32_t as_unsigned;
    } const rows[] = {
        {"2147483648", 0x7FFFFFFFu, 2147483648u},
        {"-2147483649", 0x80000000u, 2147483647u},
        {"4294967296", 0x7FFFFFFFu, 0xFFFFFFFFu},
        {"-4294967296", 0x80000000u, 0xFFFFFFFFu},
        {"99999999999999999999999999999", 0x7FFFFFFFu, 0xFFFFFFFFu},
    };
    for (const auto &row : rows) {
        uint32_t value = 0;
        uint32_t next = 0;
        LineScanner(row.text).signed_number(value);
        EXPECT_EQ(value, row.as_signed) << row.text;
        LineScanner((std::string(row.text) + ",5").c_str()).number(value).literal(',').number(next);
        EXPECT_EQ(value, row.as_unsigned) << row.text;
        EXPECT_EQ(next, 5u) << "all digits are consumed";
    }
}

TEST(LineScanner, WordsEndAtBlanksAndAtTheirBuffer) {
    char word[4] = "old";
    LineScanner(" \t\n").word(word);
    EXPECT_STREQ(word, "old");
    LineScanner(" \tab\vc").word(word);
    EXPECT_STREQ(word, "ab");
    LineScanner("abcdef").word(word);
    EXPECT_STREQ(word, "abc");
}
