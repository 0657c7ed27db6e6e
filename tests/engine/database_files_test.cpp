#include "engine/database_files.h"
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

// The loaders' own scans: a name ends at a backslash and at the digit 0.
struct Loaded {
    int category = -1, application = -1, behaviour = -1;
    std::string name;
};

Loaded loadApplication(const std::string &line) {
    Loaded loaded;
    char name[256] = "";
    EXPECT_LT(line.size(), 255u);
    EXPECT_EQ(sscanf(line.c_str(), "%d,%d,%d,%255[^\\0]", &loaded.category, &loaded.application,
                     &loaded.behaviour, name),
              4)
        << line;
    loaded.name = name;
    return loaded;
}

TEST(DatabaseFilesTest, EveryApplicationOfTheClassifierComesOutOfTheLoaderWholeAndDistinct) {
    const auto classifier = Classifier::create();
    ASSERT_TRUE(classifier);
    const auto applications = classifier->applications();
    const NameTable names(applications, classifier->categories());

    std::set<int> categories;
    std::set<std::string> categoryNames;
    for (const std::string &line : linesOf(names.categoryDatabase())) {
        unsigned category = 0;
        char name[256] = "";
        ASSERT_EQ(sscanf(line.c_str(), "%u,%255[^\\0]", &category, name), 2) << line;
        EXPECT_TRUE(categories.insert(static_cast<int>(category)).second) << line;
        EXPECT_TRUE(categoryNames.insert(name).second) << line;
        EXPECT_EQ(name, names.category(static_cast<std::uint8_t>(category)));
    }

    std::set<std::pair<int, int>> ids;
    std::set<std::pair<int, std::string>> spelled;
    for (const std::string &line : linesOf(names.applicationDatabase())) {
        const Loaded loaded = loadApplication(line);
        EXPECT_TRUE(categories.contains(loaded.category)) << line;
        EXPECT_TRUE(ids.emplace(loaded.category, loaded.application).second) << line;
        EXPECT_TRUE(spelled.emplace(loaded.category, loaded.name).second) << line;
        EXPECT_FALSE(loaded.name.empty());
        EXPECT_LE(loaded.name.size(), 63u);
    }
    EXPECT_EQ(ids.size(), applications.size());
    EXPECT_GT(ids.size(), 200u);
    for (const NamedApplication &named : applications)
        EXPECT_TRUE(ids.contains({named.application.category, named.application.id})) << named.name;
    EXPECT_EQ(names.application({}), "Unknown");
    EXPECT_EQ(names.category(0), "Unspecified");
}

TEST(DatabaseFilesTest, NamesThatTheLoaderWouldCutOrMixUpAreSpelledAnotherWay) {
    const std::string longName(80, 'x');
    const std::vector<NamedApplication> applications = {
        {{1, 1}, "Z39.50"}, {{1, 2}, "Z39.5O"}, {{1, 3}, "a\\b,c\"d\ne"}, {{1, 4}, ""},
        {{1, 5}, longName}, {{1, 6}, longName}, {{2, 1}, "Z39.50"},       {{1, 7}, "Z39.50"},
    };
    const std::vector<NamedCategory> categories = {{1, "P0P"}, {2, "POP"}};
    const NameTable names(applications, categories);
    EXPECT_EQ(names.application({1, 1}), "Z39.5O");
    EXPECT_EQ(names.application({1, 2}), "Z39.5O 2");
    EXPECT_EQ(names.application({1, 7}), "Z39.5O 3");
    EXPECT_EQ(names.application({2, 1}), "Z39.5O");
    EXPECT_EQ(names.application({1, 3}), "a_b_c_d_e");
    EXPECT_EQ(names.application({1, 4}), "Unnamed");
    EXPECT_EQ(names.application({1, 5}), std::string(63, 'x'));
    EXPECT_EQ(names.application({1, 6}), std::string(61, 'x') + " 2");
    EXPECT_EQ(names.application({2, 2}), "");
    EXPECT_EQ(names.category(1), "POP");
    EXPECT_EQ(names.category(2), "POP 2");
    EXPECT_EQ(names.category(3), "");
}

TEST(DatabaseFilesTest, EveryKindOfDeviceFitsTheLoaderAndAnIdAlwaysMeansTheSame) {
    std::map<std::pair<int, unsigned>, std::string> meaning;
    const auto lines = linesOf(deviceDatabase());
    EXPECT_EQ(lines.size(), deviceKinds().size());
    for (const std::string &line : lines) {
        EXPECT_LT(line.size(), 399u);
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

TEST(DatabaseFilesTest, SaysWhichFileCannotBeWritten) {
    std::string error;
    EXPECT_FALSE(writeDatabases("/dev/null/trend", NameTable({}, {}), error));
    EXPECT_EQ(error, "cannot write /dev/null/trend/bwdpi.app.db");
}

} // namespace
} // namespace idpfwd
