#include "engine/packets/application_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>

namespace idpfwd {
namespace {

// Scans as the loader does: a name ends at a backslash and at the digit 0.
TEST(ApplicationNames, EveryOneOfTheClassifierComesOutOfTheLoaderWholeAndDistinct) {
    const auto classifier = Classifier::create();
    ASSERT_TRUE(classifier);
    const NameTable names(classifier->applications(), classifier->categories());
    const DatabaseTexts texts = names.databases();
    std::set<std::pair<int, std::string>> loaded;
    std::istringstream lines(texts.applications);
    for (std::string line; std::getline(lines, line);) {
        Application id;
        char name[256] = "";
        ASSERT_EQ(sscanf(line.c_str(), "%hhu,%hu,0,%63[^\\0]", &id.category, &id.id, name), 3);
        EXPECT_EQ(names.application(id), name);
        EXPECT_NE(names.category(id.category), "") << line;
        EXPECT_TRUE(loaded.emplace(id.category, name).second) << line;
    }
    EXPECT_EQ(loaded.size(), classifier->applications().size());
    EXPECT_THAT(texts.devices, testing::HasSubstr("5,6,5,7,7,6,\"Apple\",\"iOS\",\"Tablet\""));
}

TEST(ApplicationNames, ThoseThatTheLoaderWouldCutOrMixUpAreSpelledAnotherWay) {
    const std::string longName(80, 'x');
    const struct {
        Application id;
        std::string given, spelled;
    } rows[] = {
        {{1, 1}, "Z39.50", "Z39.5O"},
        {{1, 2}, "Z39.5O", "Z39.5O 2"},
        {{1, 3}, "~a\\b,c\"d\ne\x7f", "~a_b_c_d_e_"},
        {{1, 4}, "", "Unnamed"},
        {{1, 5}, longName, std::string(63, 'x')},
        {{1, 6}, longName, std::string(61, 'x') + " 2"},
    };
    std::vector<NamedApplication> applications;
    for (const auto &row : rows)
        applications.push_back({row.id, row.given});
    const std::vector<NamedCategory> categories = {{1, "P0P"}, {2, "POP"}};
    const NameTable names(applications, categories);
    for (const auto &row : rows)
        EXPECT_EQ(names.application(row.id), row.spelled);
    EXPECT_EQ(names.category(2), "POP 2");
}

} // namespace
} // namespace idpfwd
