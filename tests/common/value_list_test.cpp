#include "common/quill_util.h"

#include "support/fixture.h"

#include <climits>
#include <cstring>
#include <tuple>

namespace {

class ValueList : public rig::Fixture {};

// What getNthValueSafe left in its buffer, behind a failure's sign.
std::string copied(int n, const char *text, char separator, int size) {
    char out[8] = "kept";
    const bool copied = getNthValueSafe(n, text, separator, out, size) == 0;
    return (copied ? "" : "!") + std::string(out);
}

// The number of tokens, then all slots; those from max on must not have changed.
std::string tokens(const char *text, const char *delimiters, int max) {
    char slots[3][128] = {"old", "old", "old"};
    std::string result = std::to_string(getTokens(text, delimiters, slots, max));
    for (const auto &slot : slots)
        result += std::string("/") + slot;
    return result;
}

std::string many(int count, const std::string &text) {
    return count == 0 ? "" : text + many(count - 1, text);
}

} // namespace

TEST_F(ValueList, GetNthValuePassesOverEmptyFields) {
    const std::tuple<int, std::string, const char *> rows[] = {
        {2, "a;b;c", "c"}, {1, "a;;b", "b"}, {0, ";;a;", "a"}, {1, ";;a;", ""},
        {5, "a;b", ""},    {0, "", ""},      {-1, "a;b", "a"}, {INT_MIN, "a;b", "a"}};
    for (auto [n, text, value] : rows)
        EXPECT_STREQ(getNthValue(n, text.data()), value) << n << " for " << value;
    EXPECT_EQ(getNthValue(0, nullptr), nullptr);
}

TEST_F(ValueList, SetNthValueReplacesOrPadsAndCutsAtItsBuffers) {
    const std::tuple<int, const char *, const char *> rows[] = {
        {1, "a;b;c", "a;x;c"},
        {3, "a;b", "a;b;;x"},
        {9, "a;b", "a;b"},
        {-1, "a;b", "a;b"},
        {7, "0;1;2;3;4;5;6;7;8;9", "0;1;2;3;4;5;6;x;8;9"},
        {8, "0;1;2;3;4;5;6;7;8;9", "0;1;2;3;4;5;6;7;x"}};
    for (const auto &[n, text, result] : rows)
        EXPECT_STREQ(setNthValue(n, text, "x"), result) << n << " of " << text;
    EXPECT_STREQ(setNthValue(1, setNthValue(0, "a;b", "x"), "y"), "x;y");
    const std::string tooLong(300, 'f');
    EXPECT_EQ(setNthValue(8, many(9, tooLong + ";").c_str(), tooLong.c_str()),
              many(9, tooLong.substr(0, 256) + ";").substr(0, 2047));
}

TEST_F(ValueList, ValueCountNeverCountsTheFirstCharacter) {
    const std::pair<const char *, int> rows[] = {{nullptr, 0}, {"", 1},   {";", 1},   {";a", 1},
                                                 {"a;", 2},    {";;", 2}, {"a;;b", 3}};
    for (const auto &[text, count] : rows)
        EXPECT_EQ(getValueCount(text), count);
    EXPECT_EQ(checkSemicolon("a,b"), 0);
    EXPECT_EQ(checkSemicolon("a;"), 1);
}

TEST_F(ValueList, GetNthValueSafeCountsEmptyFieldsAndFailsWithoutOne) {
    const std::tuple<int, const char *, char, int, const char *> rows[] = {
        {1, "a;;b", ';', 8, ""},       {2, "a;;b", ';', 8, "b"},    {1, "a;", ';', 8, ""},
        {0, "", ';', 8, ""},           {1, "a,b;c", ',', 8, "b;c"}, {0, "abcdef", ';', 4, "abc"},
        {0, "abcdef;", ';', 1, ""},    {-3, "a;b", ';', 8, "a"},    {-1, "a", ';', 8, "!kept"},
        {2, "a;b", ';', 8, "!kept"},   {1, "", ';', 8, "!kept"},    {0, "a", ';', 0, "!kept"},
        {0, nullptr, ';', 8, "!kept"}, {1, "a", '\0', 8, "!kept"},
    };
    for (const auto &[n, text, separator, size, expected] : rows)
        EXPECT_EQ(copied(n, text, separator, size), expected) << n << " of size " << size;
    EXPECT_EQ(getNthValueSafe(0, "a", ';', nullptr, 8), -1);
}

TEST_F(ValueList, DeleteTakesTheFieldsAndNothingElse) {
    struct {
        std::vector<int> indices;
        std::string text;
        const char *left;
        char separator = ';';
    } rows[] = {{{1}, "a;b;c", "a;c"},
                {{2}, "a;b;c", "a;b"},
                {{0}, "a;b;c", "b;c"},
                {{0, 1}, "a;b;c", "c"},
                {{0}, "a", ""},
                {{1}, "a b; ; c ", "a b; c "},
                {{0}, ";;a", ";a"},
                {{0}, "a,b,c", ",b,c", ','},
                {{0}, "a,;b", ",;b", ','},
                {{-1, 0}, "a;b", "a;b"},
                {{5}, "a;b", "a;b"},
                {{}, "a;b", "a;b"}};
    for (auto &[indices, text, left, separator] : rows) {
        EXPECT_EQ(deleteNthValueMulti(indices.data(), static_cast<int>(indices.size()), text.data(),
                                      separator),
                  0);
        EXPECT_STREQ(text.c_str(), left);
    }
}

TEST_F(ValueList, TokensAreCutAndTheRemainingSlotsCleared) {
    EXPECT_EQ(tokens(",;b,", ";,", 2), "1/b//old");
    EXPECT_EQ(tokens("a,b,c", ",", 2), "2/a/b/old");
    EXPECT_EQ(tokens(",,,", ",", 1), "0//old/old");
    for (const char *text : {static_cast<const char *>(nullptr), ""})
        EXPECT_EQ(tokens(text, ",", 1), "0/old/old/old");
    EXPECT_EQ(tokens("a", ",", 0), "0/old/old/old");
    EXPECT_EQ(tokens((std::string(200, 'l') + ",b").c_str(), ",", 2),
              "2/" + std::string(127, 'l') + "/b/old");
    const std::string head(16381, ',');
    EXPECT_EQ(tokens((head + "abcdef,g").c_str(), ",", 2), "1/ab//old")
        << "nothing behind 16,383 bytes is seen";
}

TEST_F(ValueList, ASettingsListGainsAndLosesEntries) {
    const std::tuple<const char *, const char *, int, int, int, const char *> rows[] = {
        {"", "x", 1, 4, 1, "x"},           {"ax", "x", 1, 4, 1, "ax,x"},
        {"a,x", "x", 1, 4, 0, "a,x"},      {"a,b,x", "x", 1, 2, 1, "a,b,x,x"},
        {"a,b,c", "a", 0, 4, 1, ",b,c"},   {"a,b,c", "b", 0, 4, 1, "a,c"},
        {"a,b,c", "c", 0, 4, 1, "a,b"},    {"a,a,b,a", "a", 0, 8, 1, ",b"},
        {"a,b,c,d", "a", 0, 3, 1, ",b,c"}, {"a,b", "x", 0, 4, 0, "a,b"},
        {"a", "x", 2, 4, 0, "a"},          {"a", "x", -1, 4, 0, "a"},
        {"a", "x", 1, 0, 0, "a"},          {"a", "x", 1, INT_MAX, 1, "a,x"},
    };
    for (const auto &[before, value, action, max, result, after] : rows) {
        rig::setSetting("list", before);
        EXPECT_EQ(config_nvram_list("list", value, ",", action, max), result);
        EXPECT_EQ(rig::setting("list"), after) << before << " " << value << " " << action;
    }
    rig::refuseSettings();
    EXPECT_EQ(config_nvram_list("list", "y", ",", 1, 4), 0);
}

TEST_F(ValueList, ASettingsListThatWouldNotFitIsLeftUnchanged) {
    const std::string most(253, 'a');
    for (const auto &[value, after] : {std::pair{"xy", most}, {"x", most + ",x"}}) {
        rig::setSetting("list", most);
        config_nvram_list("list", value, ",", 1, 4);
        EXPECT_EQ(rig::setting("list"), after);
    }
    const std::string huge = many(6000, "ab,") + "x";
    rig::setSetting("list", huge);
    EXPECT_EQ(config_nvram_list("list", "new", ",", 1, INT_MAX), 0);
    EXPECT_EQ(rig::setting("list"), huge);
    EXPECT_EQ(config_nvram_list("list", "ab", ",", 0, INT_MAX), 1);
    EXPECT_EQ(rig::setting("list"), "") << "the entries that were not seen are gone";
}
