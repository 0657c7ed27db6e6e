#include "common/text.h"

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

TEST(Text, CopiesAndFormatsAreCutAtTheBufferAndTerminated) {
    char text[4] = {'x', 'x', 'x', 'x'};
    copy_text(text, 0, "");
    EXPECT_EQ(text[0], 'x');
    copy_text(text, "abcdef");
    EXPECT_STREQ(text, "abc");
    EXPECT_TRUE(format_text(text, sizeof text, "%d", 567));
    EXPECT_FALSE(format_text(text, sizeof text, "%d", 1234));
    EXPECT_STREQ(text, "123");
}

TEST(Text, MacNeedsSixGroups) {
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    for (const char *text : {"AA:BB:CC:DD:EE", "AA:BB:CC:DD:EE:GG", "AAA:BB:CC:DD:EE:FF"})
        EXPECT_FALSE(parse_mac(text, mac)) << text;
    EXPECT_THAT(mac, testing::Each(9));
    EXPECT_TRUE(parse_mac(" 0:A1:b2:3:FF:0f and more", mac));
    EXPECT_THAT(mac, testing::ElementsAre(0, 0xA1, 0xB2, 3, 0xFF, 0x0F));
}

TEST(Text, ValuesStayInTheRangeOfInt) {
    const std::tuple<const char *, int, int> rows[] = {{" -45.9x", -45, -45},
                                                       {"010", 10, 10},
                                                       {"nan", 0, 0},
                                                       {"2147483647.9", INT_MAX, INT_MAX},
                                                       {"2147483648", INT_MAX, 0},
                                                       {"-2147483648.9", INT_MIN, INT_MIN},
                                                       {"-2147483649", INT_MIN, 0}};
    for (const auto &[text, decimal, truncated] : rows) {
        EXPECT_EQ(decimal_value(text), decimal) << text;
        EXPECT_EQ(truncated_value(text), truncated) << text;
    }
    EXPECT_EQ(decimal_value(nullptr), 0);
}

TEST(Text, StristrFindsTheFirstPlaceInAnyCase) {
    const char *const text = "x MAC= aAbB aabb";
    EXPECT_EQ(stristr(text, "AAbb"), text + 7);
    EXPECT_EQ(stristr(text, "aabbc"), nullptr);
}
