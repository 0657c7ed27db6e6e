#include "common/text.h"

#include <climits>
#include <gtest/gtest.h>

TEST(Text, CopyCutsAtTheBufferAndAlwaysTerminates) {
    char small[4] = {'x', 'x', 'x', 'x'};
    copy_text(small, "abcdef");
    EXPECT_STREQ(small, "abc");
    copy_text(small, "");
    EXPECT_STREQ(small, "");
    char untouched = 'x';
    copy_text(&untouched, 0, "abc");
    EXPECT_EQ(untouched, 'x');
}

TEST(Text, FormatTellsWhetherEverythingFitted) {
    char text[4];
    EXPECT_TRUE(format_text(text, sizeof text, "%d", 123));
    EXPECT_FALSE(format_text(text, sizeof text, "%d", 1234));
    EXPECT_STREQ(text, "123");
}

TEST(Text, DecimalValueIsBoundedAndNeverTrustsItsText) {
    struct {
        const char *text;
        int value;
    } const rows[] = {
        {nullptr, 0},
        {"", 0},
        {"abc", 0},
        {" -5x", -5},
        {"010", 10},
        {"2147483647", INT_MAX},
        {"2147483648", INT_MAX},
        {"-2147483649", INT_MIN},
        {"99999999999999999999", INT_MAX},
        {"-99999999999999999999", INT_MIN},
    };
    for (const auto &row : rows)
        EXPECT_EQ(decimal_value(row.text), row.value) << (row.text != nullptr ? row.text : "null");
}

TEST(Text, StristrFindsTheFirstPlaceInAnyCase) {
    const char *const text = "x MAC= aAbB aabb";
    EXPECT_EQ(stristr(text, "AAbb"), text + 7);
    EXPECT_EQ(stristr(text, ""), text);
    EXPECT_EQ(stristr(text, "aabbc"), nullptr);
    EXPECT_EQ(stristr("", "a"), nullptr);
}
