#include "common/quill_util.h"

#include "support/faults.h"
#include "support/fixture.h"

#include <climits>
#include <tuple>

using ValueList = rig::Fixture;

namespace {

// What getNthValueSafe left in its buffer, behind a failure's sign.
std::string copied(int n, const char *text, int size) {
    char out[8] = "kept";
    const bool copied = getNthValueSafe(n, text, ';', out, size) == 0;
    return (copied ? "" : "!") + std::string(out);
}

// The number of tokens, then all slots; those from max on must not have changed.
std::string tokens(const std::string &text, int max) {
    char slots[3][128] = {"old", "old", "old"};
    std::string result = std::to_string(getTokens(text.c_str(), ";,", slots, max));
    for (const auto &slot : slots)
        result += std::string("/") + slot;
    return result;
}

std::string left(const std::vector<int> &indices, std::string text, char separator = ';') {
    const int count = static_cast<int>(indices.size());
    EXPECT_EQ(deleteNthValueMulti(indices.data(), count, text.data(), separator), 0);
    return text.c_str();
}

// The list afterwards, behind the result.
std::string changed(const std::string &list, const char *value, int action, int max) {
    rig::setSetting("list", list);
    const int result = config_nvram_list("list", value, ",", action, max);
    return std::to_string(result) + ":" + rig::setting("list");
}

std::string many(int count, const std::string &text) {
    return count == 0 ? "" : text + many(count - 1, text);
}

} // namespace

TEST_F(ValueList, GetNthValuePassesOverEmptyFieldsAndTheSafeOneDoesNot) {
    const std::tuple<int, std::string, const char *, const char *> rows[] = {
        {1, "a;;b", "b", ""},
        {2, "a;;b", "", "b"},
        {0, "", "", ""},
        {2, "a;b", "", "!kept"},
        {-1, "a;b", "a", "a"},
        {-1, "a", "a", "!kept"},
        {0, "abcdefghi;", "abcdefghi", "abcdefg"}};
    for (auto [n, text, passing, safe] : rows) {
        EXPECT_EQ(copied(n, text.c_str(), 8), safe) << n << " of " << text;
        EXPECT_STREQ(getNthValue(n, text.data()), passing) << n << " for " << passing;
    }
    EXPECT_EQ(copied(0, "a", 0) + copied(0, nullptr, 8), "!kept!kept");
    EXPECT_EQ(getNthValueSafe(0, "a", ';', nullptr, 8), -1);
    EXPECT_EQ(getNthValue(0, nullptr), nullptr);
}

TEST_F(ValueList, SetNthValueReplacesOrPadsAndCutsAtItsBuffers) {
    EXPECT_STREQ(setNthValue(3, "a;b", "x"), "a;b;;x");
    EXPECT_STREQ(setNthValue(9, "a;b", "x"), "a;b");
    EXPECT_STREQ(setNthValue(-1, "a;b", "x"), "a;b");
    EXPECT_STREQ(setNthValue(7, "0;1;2;3;4;5;6;7;8;9", "x"), "0;1;2;3;4;5;6;x;8;9");
    EXPECT_STREQ(setNthValue(1, setNthValue(0, "a;b", "x"), "y"), "x;y");
    const std::string tooLong(300, 'f');
    EXPECT_EQ(setNthValue(8, many(9, tooLong + ";").c_str(), tooLong.c_str()),
              many(9, tooLong.substr(0, 256) + ";").substr(0, 2047));
}

TEST_F(ValueList, DeleteTakesTheFieldsAndNothingElse) {
    EXPECT_EQ(left({2}, "a;b;c"), "a;b");
    EXPECT_EQ(left({0, 1}, "a;b;c"), "c");
    EXPECT_EQ(left({1, 5}, "a b; ; c "), "a b; c ");
    EXPECT_EQ(left({0}, ";;a"), ";a");
    EXPECT_EQ(left({0}, "a,b;c", ','), ",b;c"); // only a semicolon would go too
    EXPECT_EQ(getValueCount(";a;;b"), 3) << "the first character never counts";
    EXPECT_EQ(getValueCount("") - getValueCount(nullptr), 1);
    EXPECT_EQ(checkSemicolon("a;") - checkSemicolon("a"), 1);
}

TEST_F(ValueList, TokensAreCutAndTheRemainingSlotsCleared) {
    EXPECT_EQ(tokens(",;b,", 2), "1/b//old");
    EXPECT_EQ(tokens("a,b,c", 2), "2/a/b/old");
    EXPECT_EQ(tokens("", 1), "0/old/old/old");
    EXPECT_EQ(tokens("a,b", 1), "1/a/old/old");
    EXPECT_EQ(getTokens(nullptr, ",", nullptr, 1) + getTokens("a", ",", nullptr, 0), 0);
    EXPECT_EQ(tokens(std::string(200, 'l') + ",b", 2), "2/" + std::string(127, 'l') + "/b/old");
    // Nothing behind 16,383 bytes is seen.
    EXPECT_EQ(tokens(std::string(16381, ',') + "abcdef,g", 2), "1/ab//old");
}

TEST_F(ValueList, ASettingsListGainsAndLosesEntries) {
    EXPECT_EQ(changed("", "x", 1, 4), "1:x");
    EXPECT_EQ(changed("ax", "x", 1, INT_MAX), "1:ax,x");
    EXPECT_EQ(changed("a,x", "x", 1, 4), "0:a,x");
    EXPECT_EQ(changed("a,b,x", "x", 1, 2), "1:a,b,x,x"); // two are looked at
    EXPECT_EQ(changed("a,b,c,d", "b", 0, 3), "1:a,c");
    EXPECT_EQ(changed("a,a,b,a", "a", 0, 8), "1:,b");
    EXPECT_EQ(changed("a", "a", 2, 4), "0:a");
    const std::string most(253, 'a');
    EXPECT_EQ(changed(most, "x", 1, 4), "1:" + most + ",x");
    EXPECT_EQ(changed(most, "xy", 1, 4), "0:" + most);
    EXPECT_EQ(changed("a,b", "a", 0, 0), "0:a,b");
    EXPECT_EQ(changed("a,b", "b", 0, 1), "0:a,b"); // one is looked at
    rig::refuseSettings();
    EXPECT_EQ(changed("a", "b", 1, 4), "0:a");
    const rig::Fault noMemory(rig::Call::kAllocate, 1);
    EXPECT_EQ(changed("a", "b", 1, 4), "0:a");
}
