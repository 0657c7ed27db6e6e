#include "common/quill_util.h"

#include "support/fixture.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <tuple>

using testing::ElementsAre;

namespace {

class ValueList : public rig::Fixture {};

std::string nthValue(int n, std::string text) {
    return getNthValue(n, text.data());
}

std::string deleted(std::vector<int> indices, std::string text, char separator = ';') {
    EXPECT_EQ(deleteNthValueMulti(indices.data(), static_cast<int>(indices.size()), text.data(),
                                  separator),
              0);
    return text.c_str();
}

struct Copied {
    int result;
    std::string out;
    bool operator==(const Copied &) const = default;
};

Copied copied(int n, const char *text, char separator, int size) {
    char out[8] = "kept";
    const int result = getNthValueSafe(n, text, separator, out, size);
    return {result, out};
}

// The slots after getTokens, a guard slot behind the last included.
std::vector<std::string> tokens(const char *text, const char *delimiters, int max, int expected) {
    std::vector<std::array<char, 128>> slots(static_cast<std::size_t>(std::max(max, 0)) + 1);
    for (auto &slot : slots)
        strcpy(slot.data(), "old");
    EXPECT_EQ(getTokens(text, delimiters, reinterpret_cast<char(*)[128]>(slots.data()), max),
              expected);
    std::vector<std::string> result;
    result.reserve(slots.size());
    for (const auto &slot : slots)
        result.emplace_back(slot.data());
    return result;
}

std::string many(int count, const std::string &text) {
    std::string result;
    for (int i = 0; i < count; ++i)
        result += text;
    return result;
}

} // namespace

TEST_F(ValueList, GetNthValuePassesOverEmptyFields) {
    struct {
        int n;
        const char *text;
        const char *value;
    } const rows[] = {{0, "a;b;c", "a"}, {2, "a;b;c", "c"},    {1, "a;;b", "b"}, {0, ";;a;", "a"},
                      {1, ";;a;", ""},   {5, "a;b", ""},       {0, "", ""},      {3, ";;;", ""},
                      {-1, "a;b", "a"},  {INT_MIN, "a;b", "a"}};
    for (const auto &row : rows)
        EXPECT_EQ(nthValue(row.n, row.text), row.value) << row.n << " of " << row.text;
    EXPECT_EQ(getNthValue(0, nullptr), nullptr);
}

TEST_F(ValueList, SetNthValueReplacesOrPads) {
    struct {
        int n;
        const char *text;
        const char *result;
    } const rows[] = {
        {0, "", "x"},
        {0, "a;b", "x;b"},
        {1, "a;b;c", "a;x;c"},
        {3, "a;b", "a;b;;x"},
        {1, "a;;b", "a;x;b"},
        {8, "", ";;;;;;;;x"},
        {7, "0;1;2;3;4;5;6;7;8;9;10", "0;1;2;3;4;5;6;x;8;9;10"},
        {8, "0;1;2;3;4;5;6;7;8;9;10", "0;1;2;3;4;5;6;7;x"},
        {9, "a;b", "a;b"},
        {-1, "a;b", "a;b"},
        {INT_MAX, "a;b", "a;b"},
    };
    for (const auto &row : rows)
        EXPECT_STREQ(setNthValue(row.n, row.text, "x"), row.result) << row.n << " of " << row.text;
    EXPECT_STREQ(setNthValue(1, setNthValue(0, "a;b", "x"), "y"), "x;y");
}

TEST_F(ValueList, SetNthValueCutsFieldsAndResultAtTheirBuffers) {
    const std::string longField(300, 'f');
    const std::string cutField(256, 'f');
    EXPECT_EQ(setNthValue(1, (longField + ";b;" + longField).c_str(), longField.c_str()),
              cutField + ";" + cutField + ";" + cutField);
    const std::string full = setNthValue(8, many(9, longField + ";").c_str(), longField.c_str());
    EXPECT_EQ(full, many(9, cutField + ";").substr(0, 2047));
}

TEST_F(ValueList, ValueCountNeverCountsTheFirstCharacter) {
    const std::pair<const char *, int> rows[] = {{"", 1},  {";", 1},   {";a", 1}, {"a;", 2},
                                                 {"a", 1}, {"a;b", 2}, {";;", 2}, {"a;;b", 3}};
    for (const auto &[text, count] : rows)
        EXPECT_EQ(getValueCount(text), count) << text;
    EXPECT_EQ(getValueCount(nullptr), 0);
    EXPECT_EQ(checkSemicolon(""), 0);
    EXPECT_EQ(checkSemicolon("a,b"), 0);
    EXPECT_EQ(checkSemicolon("a;"), 1);
}

TEST_F(ValueList, GetNthValueSafeCountsEmptyFieldsAndFailsWithoutOne) {
    EXPECT_EQ(copied(1, "a;;b", ';', 8), (Copied{0, ""}));
    EXPECT_EQ(copied(2, "a;;b", ';', 8), (Copied{0, "b"}));
    EXPECT_EQ(copied(1, "a;", ';', 8), (Copied{0, ""}));
    EXPECT_EQ(copied(0, "", ';', 8), (Copied{0, ""}));
    EXPECT_EQ(copied(1, "a,b;c", ',', 8), (Copied{0, "b;c"}));
    EXPECT_EQ(copied(0, "abcdef", ';', 4), (Copied{0, "abc"}));
    EXPECT_EQ(copied(0, "abcdef;", ';', 1), (Copied{0, ""}));
    EXPECT_EQ(copied(-3, "a;b", ';', 8), (Copied{0, "a"}));
    EXPECT_EQ(copied(0, "a;b", '\0', 8), (Copied{0, "a;b"}));
    for (const auto &[n, text, size] : {std::tuple{-1, "a", 8},
                                        {2, "a;b", 8},
                                        {1, "", 8},
                                        {INT_MAX, "a;b", 8},
                                        {0, "a", 0},
                                        {0, "a", -1}})
        EXPECT_EQ(copied(n, text, ';', size), (Copied{-1, "kept"})) << n << " of " << text;
    EXPECT_EQ(copied(0, nullptr, ';', 8), (Copied{-1, "kept"}));
    EXPECT_EQ(copied(1, "a", '\0', 8), (Copied{-1, "kept"}));
    EXPECT_EQ(getNthValueSafe(0, "a", ';', nullptr, 8), -1);
}

TEST_F(ValueList, DeleteTakesTheFieldsAndNothingElse) {
    EXPECT_EQ(deleted({1}, "a;b;c"), "a;c");
    EXPECT_EQ(deleted({2}, "a;b;c"), "a;b");
    EXPECT_EQ(deleted({0}, "a;b;c"), "b;c");
    EXPECT_EQ(deleted({0, 1}, "a;b;c"), "c");
    EXPECT_EQ(deleted({0, 1, 2}, "a;b;c"), "");
    EXPECT_EQ(deleted({0}, "a"), "");
    EXPECT_EQ(deleted({1}, "a b; ; c "), "a b; c ");
    EXPECT_EQ(deleted({0}, ";;a"), ";a");
    EXPECT_EQ(deleted({0}, "a,b,c", ','), ",b,c") << "only a semicolon is removed";
    EXPECT_EQ(deleted({0}, "a,;b", ','), ",;b");
    EXPECT_EQ(deleted({-1, 0}, "a;b"), "a;b") << "waits for an index that never comes";
    EXPECT_EQ(deleted({5}, "a;b"), "a;b");
    EXPECT_EQ(deleted({1, 1, 2}, "a;b;c"), "a;c");
    EXPECT_EQ(deleted({}, "a;b"), "a;b");
    EXPECT_EQ(deleted({0}, "a;b", '\0'), "");
}

TEST_F(ValueList, TokensAreCutAndTheRemainingSlotsCleared) {
    EXPECT_THAT(tokens(",a;;b,", ";,", 4, 2), ElementsAre("a", "b", "", "", "old"));
    EXPECT_THAT(tokens("a,b,c", ",", 2, 2), ElementsAre("a", "b", "old"));
    EXPECT_THAT(tokens(",,,", ",", 1, 0), ElementsAre("", "old"));
    EXPECT_THAT(tokens("", ",", 1, 0), ElementsAre("old", "old"));
    EXPECT_THAT(tokens(nullptr, ",", 1, 0), ElementsAre("old", "old"));
    EXPECT_THAT(tokens("a", ",", 0, 0), ElementsAre("old"));
    EXPECT_THAT(tokens("a", ",", -5, 0), ElementsAre("old"));
    EXPECT_THAT(tokens((std::string(200, 'l') + ",b").c_str(), ",", 2, 2),
                ElementsAre(std::string(127, 'l'), "b", "old"));
    const std::string head = many(8191, ",") + many(8190, ";");
    EXPECT_THAT(tokens((head + "abcdef,g").c_str(), ",;", 2, 1), ElementsAre("ab", "", "old"))
        << "nothing behind 16,383 bytes is seen";
}

TEST_F(ValueList, ASettingsListGainsAndLosesEntries) {
    struct {
        const char *before;
        const char *value;
        int action;
        int max;
        int result;
        const char *after;
    } const rows[] = {
        {"", "x", 1, 4, 1, "x"},
        {"a", "x", 1, 4, 1, "a,x"},
        {"a,x", "x", 1, 4, 0, "a,x"},
        {"ax", "x", 1, 4, 1, "ax,x"},
        {"a,b,x", "x", 1, 2, 1, "a,b,x,x"},
        {"a,b,c", "a", 0, 4, 1, ",b,c"},
        {"a,b,c", "b", 0, 4, 1, "a,c"},
        {"a,b,c", "c", 0, 4, 1, "a,b"},
        {"a", "a", 0, 4, 1, ""},
        {"a,a,b,a", "a", 0, 8, 1, ",b"},
        {"a,b,c,d", "a", 0, 3, 1, ",b,c"},
        {"a,b", "x", 0, 4, 0, "a,b"},
        {"", "x", 0, 4, 0, ""},
        {"a,b,c", "c", 0, 2, 0, "a,b,c"},
        {"a", "x", 2, 4, 0, "a"},
        {"a", "x", -1, 4, 0, "a"},
        {"a", "x", 1, 0, 0, "a"},
        {"a", "x", 1, -1, 0, "a"},
        {"a", "x", 1, INT_MAX, 1, "a,x"},
    };
    for (const auto &row : rows) {
        rig::setSetting("list", row.before);
        EXPECT_EQ(config_nvram_list("list", row.value, ",", row.action, row.max), row.result)
            << row.before << " " << row.value << " " << row.action << " " << row.max;
        EXPECT_EQ(rig::setting("list"), row.after);
    }
    rig::setSetting("list", "a");
    rig::refuseSettings();
    EXPECT_EQ(config_nvram_list("list", "x", ",", 1, 4), 0);
}

TEST_F(ValueList, ASettingsListThatWouldNotFitIsLeftUnchanged) {
    const std::string most(253, 'a');
    for (const auto &[value, result] : {std::pair{"x", 1}, {"xy", 0}}) {
        rig::setSetting("list", most);
        EXPECT_EQ(config_nvram_list("list", value, ",", 1, 4), result);
        EXPECT_EQ(rig::setting("list"), result == 1 ? most + ",x" : most);
    }
    const std::string huge = many(20000, "ab,") + "x";
    rig::setSetting("list", huge);
    EXPECT_EQ(config_nvram_list("list", "ab", ",", 1, INT_MAX), 0);
    EXPECT_EQ(config_nvram_list("list", "new", ",", 1, INT_MAX), 0);
    EXPECT_EQ(rig::setting("list"), huge);
    EXPECT_EQ(config_nvram_list("list", "ab", ",", 0, INT_MAX), 1);
    EXPECT_EQ(rig::setting("list"), "") << "the entries that were not seen are gone";
}
