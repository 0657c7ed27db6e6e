#include "usage/uplink/report.h"

#include <gmock/gmock.h>

namespace uplink {
namespace {

using namespace std::string_literals;

TEST(UplinkReport, StaysAsItIsButForWhiteSpaceAndBrokenCharacters) {
    const struct {
        std::string file, text;
    } rows[] = {
        {"{}", "{}"},
        {"\t{ \"b\" :\r\n 1 ,\"a\":[ 1 , 2 ] }\n", R"({"b":1,"a":[1,2]})"},
        {R"({ "a" : "two  blanks \" and { \\" , "b" : "\\\" " })",
         R"({"a":"two  blanks \" and { \\","b":"\\\" "})"},
        {R"({"n": [1.0, 1e+20, -5, 18446744073709551616, 0.1]})",
         R"({"n":[1.0,1e+20,-5,18446744073709551616,0.1]})"},
        {"{\"a\":\"\u00e4\u20ac\U0001F600\"}", "{\"a\":\"\u00e4\u20ac\U0001F600\"}"},
        {"{\"a\":\"cut \xc3\"}", "{\"a\":\"cut \uFFFD\"}"},
        {"{\"a\":\"\xe2\x82\"}", "{\"a\":\"\uFFFD\uFFFD\"}"},
        {"{\"a\":\"\xc1\xbf\xed\xa0\x80\"}", "{\"a\":\"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\"}"},
        {"{\"a\":\"\xe0\x9f\xbf\"}", "{\"a\":\"\uFFFD\uFFFD\uFFFD\"}"},
        {"{\"a\":\"\xf0\x8f\xbf\xbf\"}", "{\"a\":\"\uFFFD\uFFFD\uFFFD\uFFFD\"}"},
        {"{\"a\":\"\xf4\x90\x80\x80\"}", "{\"a\":\"\uFFFD\uFFFD\uFFFD\uFFFD\"}"},
        {"{\"a\":\"\xf4\x8f\xbf\xbf\xf5\"}", "{\"a\":\"\xf4\x8f\xbf\xbf\uFFFD\"}"},
    };
    for (const auto &row : rows) {
        const CheckedReport report = checkReport(row.file);
        EXPECT_EQ(report.text, row.text);
        EXPECT_EQ(report.refusal, "");
    }
}

TEST(UplinkReport, WhatIsNoReportIsRefused) {
    for (const std::string &file : {""s, " "s, "{"s, "{}}"s, "[]"s, "null"s, "{} x"s,
                                    "{\"a\":nan}"s, "{\"a\":\"\n\"}"s, "{}\0"s}) {
        const CheckedReport report = checkReport(file);
        EXPECT_EQ(report.text, "") << file;
        EXPECT_NE(report.refusal, "") << file;
    }
}

std::string ofSize(std::size_t size) {
    return "{\"a\":\"" + std::string(size - 8, 'x') + "\"}";
}

TEST(UplinkReport, TheLargestOneFitsIntoAMessageAndNoLargerOneIsTaken) {
    const CheckedReport largest = checkReport(" " + ofSize(kMaxReport));
    EXPECT_EQ(largest.text.size(), kMaxReport);
    EXPECT_LE(envelope(std::string(64, 'r'), std::string(32, 'f'),
                       {INT64_MAX, INT64_MAX / 1'000'000, INT64_MAX, largest.text})
                  .size(),
              kMaxEnvelope);
    EXPECT_NE(checkReport(ofSize(kMaxReport + 1)).refusal, "");
}

TEST(UplinkReport, TheEnvelopeHoldsWhatOthersRead) {
    const Message message{
        .sequence = 417, .taken = 1'795'292'280, .dropped = 3, .report = R"({"b":1,"a":2})"};
    EXPECT_EQ(envelope("r-00012ab", "9f0c", message),
              R"({"schema":1,"router":"r-00012ab","outbox":"9f0c","sequence":417,)"
              R"("taken":"2026-11-21T20:18:00Z","dropped":3,"report":{"b":1,"a":2}})");
}

} // namespace
} // namespace uplink
