#include "common/text.h"

#include <climits>
#include <gmock/gmock.h>
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

TEST(Text, MacNeedsSixGroups) {
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    for (const char *text :
         {"", "AA:BB:CC:DD:EE", "AA:BB:CC:DD:EE:GG", "AABBCCDDEEFF", "AAA:BB:CC:DD:EE:FF"})
        EXPECT_FALSE(parse_mac(text, mac)) << text;
    EXPECT_THAT(mac, testing::Each(9));
    EXPECT_TRUE(parse_mac(" 0:A1:b2:3:FF:0f and more", mac));
    EXPECT_THAT(mac, testing::ElementsAre(0, 0xA1, 0xB2, 3, 0xFF, 0x0F));
}

TEST(Text, TruncatedValueRefusesWhatNoIntCanHold) {
    const std::pair<const char *, int> rows[] = {
        {"", 0},           {" -45.9x", -45},          {"1e3", 1000},     {"nan", 0},
        {"-inf", 0},       {"2147483647.9", INT_MAX}, {"2147483648", 0}, {"-2147483648.9", INT_MIN},
        {"-2147483649", 0}};
    for (const auto &[text, value] : rows)
        EXPECT_EQ(truncated_value(text), value) << text;
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
