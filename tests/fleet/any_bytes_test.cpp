#include "ingest/report/any_bytes.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace fleet {
namespace {

TEST(AnyBytes, LeavesValidTextAlone) {
    for (const char *text : {"", "plain", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                             "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_EQ(shelterBytes(text), text);
}

TEST(AnyBytes, MakesEverythingElseValidAndGivesItBack) {
    std::string every;
    for (int i = 255; i >= 128; --i)
        every += static_cast<char>(i);
    // Overlong forms, surrogates, beyond the last character, cut sequences.
    for (const std::string &text :
         {every, std::string("\xC0\xAF"), std::string("\xE0\x9F\xBF"), std::string("\xED\xA0\x80"),
          std::string("\xF0\x8F\xBF\xBF"), std::string("\xF4\x90\x80\x80"),
          std::string("a\xE2\x98"), std::string("\xE2\x98z\xC3"), std::string("\xF0\x9F\x98"),
          std::string("\xEF\x9E\x80 and \xEF\x9F\xBF")}) {
        const std::string sheltered = shelterBytes(text);
        EXPECT_TRUE(nlohmann::json::accept("\"" + sheltered + "\""));
        EXPECT_EQ(unshelterBytes(sheltered), text);
    }
}

} // namespace
} // namespace fleet
