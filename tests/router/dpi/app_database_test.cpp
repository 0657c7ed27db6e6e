#include "router/dpi/loaded.h"

#include <filesystem>

using testing::ElementsAre;
using AppDatabase = rig::Fixture;

namespace {

constexpr const char *kAppFile = "/tmp/trend/bwdpi.app.db";

// Each record as "category,application,behaviour,name".
std::vector<std::string> loadApps(const std::string &content) {
    return rig::loaded<app_inf>(kAppFile, content, init_app_inf, free_app_inf, [](app_inf &app) {
        return std::to_string(app.cat_id) + "," + std::to_string(app.app_id) + "," +
               std::to_string(app.beh_id) + "," + app.app_name;
    });
}

// Each record as "category,name".
std::vector<std::string> loadCategories(const std::string &content) {
    return rig::loaded<app_cat>(
        "/tmp/trend/bwdpi.cat.db", content, init_app_cat, free_app_cat, [](app_cat &category) {
            return std::to_string(category.cat_id) + "," + category.cat_name;
        });
}

} // namespace

TEST_F(AppDatabase, NamesEndAtAZeroDigitOrABackslash) {
    EXPECT_THAT(loadApps("# comment\n3,17,0,Video Streaming\n5,10,2,X100\n1,2,3,a\\b\n"),
                ElementsAre("3,17,0,Video Streaming", "5,10,2,X1", "1,2,3,a"));
    EXPECT_THAT(loadCategories("8,Games\n\n9,Game 2048"),
                ElementsAre("8,Games", "8,Games", "9,Game 2"));
}

TEST_F(AppDatabase, WhatALineLacksIsKeptFromTheLineBefore) {
    EXPECT_THAT(loadApps("4,5,6,name\n\n7,,8,lost\n1,2,3,0\n-1, 9,4294967295,wide\n"),
                ElementsAre("4,5,6,name", "4,5,6,name", "7,5,6,name", "1,2,3,name",
                            "4294967295,9,2147483647,wide"));
    // Ids start at 0 in each load, the name does not.
    EXPECT_THAT(loadApps("garbage\n"), ElementsAre("0,0,0,wide"));
}

TEST_F(AppDatabase, ALongLineComesInPieces) {
    const std::string piece = "1,2,3," + std::string(249, 'n');
    EXPECT_THAT(loadApps(piece + "4,5,6,rest\n"), ElementsAre(piece, "4,5,6,rest"));
}

TEST_F(AppDatabase, SearchesTakeTheFirstRecordWithAllIds) {
    rig::writeFile(kAppFile, "1,2,0,first\n1,2,0,second\n1,3,0,other\n");
    rig::writeFile("/tmp/trend/bwdpi.cat.db", "1,one\n2,two\n");
    list_head apps = LIST_HEAD_INIT(apps), categories = LIST_HEAD_INIT(categories);
    ASSERT_EQ(init_app_inf(&apps) + init_app_cat(&categories), 0);
    EXPECT_STREQ(search_app_inf(&apps, 1, 2), "first");
    EXPECT_EQ(search_app_inf(&apps, 1, 4), nullptr);
    EXPECT_EQ(search_app_inf(&apps, 2, 2), nullptr);
    EXPECT_STREQ(search_rule_db(&categories, 2), "two");
    EXPECT_EQ(search_app_cat(&categories, 3), nullptr);
    free_app_inf(&apps);
    free_rule_db(&categories);
    EXPECT_TRUE(list_is_empty(&apps) && list_is_empty(&categories));
}

TEST_F(AppDatabase, TheFileListSaysWhereTheDatabasesAre) {
    rig::writeFile("/tmp/trend/bwdpi.txt", "app_inf_db_path:/opt/apps\nAPP_CAT_DB_PATH:/opt/no\n");
    rig::writeFile("/opt/apps", "1,2,3,elsewhere\n");
    EXPECT_THAT(loadApps("1,2,3,default\n"), ElementsAre("1,2,3,elsewhere"));
    EXPECT_EQ(rig::standardError([] {
                  std::filesystem::remove("/opt/apps");
                  list_head none = LIST_HEAD_INIT(none);
                  EXPECT_EQ(init_app_inf(&none), -1);
                  EXPECT_EQ(init_app_cat(&none), -1);
              }),
              "[init_app_inf(162)]: get /tmp/trend/bwdpi.app.db error \n"
              "[init_app_cat(248)]: get /tmp/trend/bwdpi.cat.db error \n");
}
