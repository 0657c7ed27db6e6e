#include "dpi/conf_app.h"

#include "support/fixture.h"

#include <filesystem>

using testing::ElementsAre;

namespace {

constexpr const char *kListFile = "/tmp/trend/bwdpi.txt";

class AppDatabase : public rig::Fixture {
  protected:
    ~AppDatabase() override {
        free_app_inf(&apps);
        free_app_cat(&categories);
    }

    // Each record as "category,application,behaviour,name".
    std::vector<std::string> loadApps(const std::string &content) {
        rig::writeFile("/tmp/trend/bwdpi.app.db", content);
        free_app_inf(&apps);
        EXPECT_EQ(init_app_inf(&apps), 0);
        std::vector<std::string> result;
        for (list_head *link = apps.next; link != &apps; link = link->next) {
            const auto *app = LIST_RECORD(link, app_inf, list);
            std::string ids;
            for (const uint32_t id : {app->cat_id, app->app_id, app->beh_id})
                ids += std::to_string(id) + ",";
            result.push_back(ids + app->app_name);
        }
        return result;
    }

    // Each record as "category,name".
    std::vector<std::string> loadCategories(const std::string &content) {
        rig::writeFile("/tmp/trend/bwdpi.cat.db", content);
        free_app_cat(&categories);
        EXPECT_EQ(init_app_cat(&categories), 0);
        std::vector<std::string> result;
        for (list_head *link = categories.next; link != &categories; link = link->next) {
            const auto *category = LIST_RECORD(link, app_cat, list);
            result.push_back(std::to_string(category->cat_id) + "," + category->cat_name);
        }
        return result;
    }

    list_head apps = LIST_HEAD_INIT(apps);
    list_head categories = LIST_HEAD_INIT(categories);
};

} // namespace

TEST_F(AppDatabase, NamesEndAtAZeroDigitOrABackslash) {
    EXPECT_THAT(loadApps("# comment\n3,17,0,Video Streaming\n5,10,2,X100\n1,2,3,a\\b\n"),
                ElementsAre("3,17,0,Video Streaming", "5,10,2,X1", "1,2,3,a"));
    EXPECT_THAT(loadCategories("8,Games\n9,Game 2048"), ElementsAre("8,Games", "9,Game 2"));
}

TEST_F(AppDatabase, SearchesTakeTheFirstRecordWithAllIds) {
    loadApps("1,2,0,first\n1,2,0,second\n1,3,0,other\n");
    EXPECT_STREQ(search_app_inf(&apps, 1, 2), "first");
    EXPECT_STREQ(search_app_inf(&apps, 1, 3), "other");
    EXPECT_EQ(search_app_inf(&apps, 1, 4), nullptr);
    EXPECT_EQ(search_app_inf(&apps, 2, 2), nullptr);
    loadCategories("1,first\n1,second\n");
    EXPECT_STREQ(search_app_cat(&categories, 1), "first");
    EXPECT_EQ(search_app_cat(&categories, 2), nullptr);
}

TEST_F(AppDatabase, WhatALineLacksIsKeptFromTheLineBefore) {
    EXPECT_THAT(loadApps("4,5,6,name\n\n7,,8,lost\nno separator\n1,2,3,0\n-1, 9,4294967295,wide\n"),
                ElementsAre("4,5,6,name", "4,5,6,name", "7,5,6,name", "7,5,6,name", "1,2,3,name",
                            "4294967295,9,2147483647,wide"));
    EXPECT_THAT(loadApps("garbage\n"), ElementsAre("0,0,0,wide"))
        << "ids start at 0 in each load, the name does not";
    EXPECT_THAT(loadCategories("4,name\n\n-1\n99999999999,wide\n"),
                ElementsAre("4,name", "4,name", "4294967295,name", "4294967295,wide"));
}

TEST_F(AppDatabase, LongAndBinaryLinesStayInsideTheBuffers) {
    const std::string piece = "1,2,3," + std::string(249, 'n');
    EXPECT_THAT(loadApps(piece + "4,5,6,rest\n"), ElementsAre(piece, "4,5,6,rest"));
    EXPECT_EQ(loadApps(std::string(1 << 20, '1')).size(), (1u << 20) / 255 + 1);
    EXPECT_THAT(loadCategories(std::string("1,a\0b\n\0\xff\n2,\xfe\n", 13)),
                ElementsAre("1,a", "1,a", "2,\xfe"));
}

TEST_F(AppDatabase, TheFileListSaysWhereTheDatabasesAre) {
    rig::writeFile(kListFile, "app_inf_db_path:/opt/apps\nAPP_CAT_DB_PATH:/opt/none\n");
    rig::writeFile("/opt/apps", "1,2,3,elsewhere\n");
    EXPECT_THAT(loadApps("1,2,3,default\n"), ElementsAre("1,2,3,elsewhere"));
    std::string errors = rig::standardError([this] { EXPECT_EQ(init_app_cat(&categories), -1); });
    EXPECT_EQ(errors, "[init_app_cat(248)]: get /tmp/trend/bwdpi.cat.db error \n");
    EXPECT_EQ(search_app_cat(&categories, 0), nullptr);

    rig::writeFile(kListFile, "OTHER:/opt/apps\n"); // without their keys, the default paths
    EXPECT_THAT(loadApps("1,2,3,default\n"), ElementsAre("1,2,3,default"));
    std::filesystem::remove("/tmp/trend/bwdpi.app.db");
    errors = rig::standardError([this] { EXPECT_EQ(init_app_inf(&apps), -1); });
    EXPECT_EQ(errors, "[init_app_inf(162)]: get /tmp/trend/bwdpi.app.db error \n");
}
