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

TEST(Text, WhatIsNoUtf8IsReplacedAndACutCharacterGoes) {
    const std::pair<const char *, const char *> rows[] = {
        {"", ""},
        {"a\xc2\x80\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xed\x9f\xbf\xf4\x8f\xbf\xbfz",
         "a\xc2\x80\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xed\x9f\xbf\xf4\x8f\xbf\xbfz"},
        {"ab\xc3", "ab"},
        {"ab\xe2\x82", "ab"},
        {"ab\xf0\x9f\x98", "ab"},
        {"caf\xe9 \x80\xff", "caf? ??"},
        {"\xc0\xaf\xc1\x81\xe0\x9f\xbf\xf0\x8f\xbf\xbf", "???????????"},
        {"\xed\xa0\x80\xf4\x90\x80\x80\xf5\x80", "?????????"},
        {"\xe2\x82"
         "a\xe2\xc3\xa9",
         "??a?\xc3\xa9"}};
    for (const auto &[given, expected] : rows) {
        char text[40];
        copy_text(text, given);
        make_utf8(text);
        EXPECT_STREQ(text, expected);
    }
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
