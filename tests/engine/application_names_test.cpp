#include "engine/application_names.h"
#include "engine/dhcp_devices.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>

namespace idpfwd {
namespace {

std::vector<std::string> linesOf(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// Scans as the loaders do: a name ends at a backslash and at the digit 0.
TEST(ApplicationNames, EveryOneOfTheClassifierComesOutOfTheLoaderWholeAndDistinct) {
    const auto classifier = Classifier::create();
    ASSERT_TRUE(classifier);
    const NameTable names(classifier->applications(), classifier->categories());
    const DatabaseTexts texts = names.databases();

    std::set<unsigned> categories;
    std::set<std::string> categoryNames;
    for (const std::string &line : linesOf(texts.categories)) {
        unsigned category = 0;
        char name[256] = "";
        ASSERT_EQ(sscanf(line.c_str(), "%u,%255[^\\0]", &category, name), 2) << line;
        EXPECT_TRUE(categories.insert(category).second) << line;
        EXPECT_TRUE(categoryNames.insert(name).second) << line;
        EXPECT_EQ(name, names.category(static_cast<std::uint8_t>(category)));
    }

    std::map<std::pair<unsigned, unsigned>, std::string> loaded;
    std::set<std::pair<unsigned, std::string>> spelled;
    for (const std::string &line : linesOf(texts.applications)) {
        unsigned category = 0, application = 0;
        char name[256] = "";
        ASSERT_EQ(sscanf(line.c_str(), "%u,%u,0,%63[^\\0]", &category, &application, name), 3);
        EXPECT_TRUE(categories.contains(category)) << line;
        EXPECT_TRUE(loaded.emplace(std::pair{category, application}, name).second) << line;
        EXPECT_TRUE(spelled.emplace(category, name).second) << line;
    }
    EXPECT_GT(loaded.size(), 200u);
    for (const NamedApplication &named : classifier->applications())
        EXPECT_EQ(names.application(named.application),
                  (loaded[{named.application.category, named.application.id}]));
    EXPECT_EQ(names.application({}), "Unknown");
    EXPECT_EQ(names.category(0), "Unspecified");
}

TEST(ApplicationNames, ThoseThatTheLoaderWouldCutOrMixUpAreSpelledAnotherWay) {
    const std::string longName(80, 'x');
    const struct {
        Application id;
        std::string given, spelled;
    } rows[] = {
        {{1, 1}, "Z39.50", "Z39.5O"},
        {{1, 2}, "Z39.5O", "Z39.5O 2"},
        {{1, 3}, "a\\b,c\"d\ne", "a_b_c_d_e"},
        {{1, 4}, "", "Unnamed"},
        {{1, 5}, longName, std::string(63, 'x')},
        {{1, 6}, longName, std::string(61, 'x') + " 2"},
        {{2, 1}, "Z39.50", "Z39.5O"},
    };
    std::vector<NamedApplication> applications;
    for (const auto &row : rows)
        applications.push_back({row.id, row.given});
    const std::vector<NamedCategory> categories = {{1, "P0P"}, {2, "POP"}};
    const NameTable names(applications, categories);
    for (const auto &row : rows)
        EXPECT_EQ(names.application(row.id), row.spelled);
    EXPECT_EQ(names.application({2, 2}), "");
    EXPECT_EQ(names.category(1), "POP");
    EXPECT_EQ(names.category(2), "POP 2");
    EXPECT_EQ(names.category(3), "");
}

TEST(ApplicationNames, EveryKindOfDeviceFitsTheLoaderAndAnIdAlwaysMeansTheSame) {
    std::map<std::pair<int, unsigned>, std::string> meaning;
    const auto lines = linesOf(NameTable({}, {}).databases().devices);
    EXPECT_EQ(lines.size(), deviceKinds().size());
    for (const std::string &line : lines) {
        unsigned id[6];
        char name[6][100];
        ASSERT_EQ(sscanf(line.c_str(),
                         "%u,%u,%u,%u,%u,%u,\"%99[^\"]\",\"%99[^\"]\",\"%99[^\"]\",\"%99[^\"]\","
                         "\"%99[^\"]\",\"%99[^\"]\"",
                         &id[0], &id[1], &id[2], &id[3], &id[4], &id[5], name[0], name[1], name[2],
                         name[3], name[4], name[5]),
                  12)
            << line;
        for (int column = 0; column < 6; column++) {
            EXPECT_NE(id[column], 0u) << "0 is what an unknown device has: " << line;
            const auto known = meaning.try_emplace({column, id[column]}, name[column]).first;
            EXPECT_EQ(known->second, name[column]) << line;
        }
    }
}

} // namespace
} // namespace idpfwd
