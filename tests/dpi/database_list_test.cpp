#include "dpi/conf_app.h"

#include "support/fixture.h"

#include <filesystem>

using testing::ElementsAre;
using testing::Pair;

namespace {

constexpr const char *kListFile = "/tmp/trend/bwdpi.txt";

class DatabaseList : public rig::Fixture {
  protected:
    ~DatabaseList() override { free_system_conf(&list); }

    std::vector<std::pair<std::string, std::string>> load(const std::string &content) {
        rig::writeFile(kListFile, content);
        free_system_conf(&list);
        EXPECT_EQ(init_system_conf(&list), 0);
        return entries();
    }

    std::vector<std::pair<std::string, std::string>> entries() {
        std::vector<std::pair<std::string, std::string>> result;
        for (list_head *link = list.next; link != &list; link = link->next) {
            const auto *entry = LIST_RECORD(link, system_conf, list);
            result.emplace_back(entry->filename, entry->filepath);
        }
        return result;
    }

    list_head list = LIST_HEAD_INIT(list);
};

} // namespace

TEST_F(DatabaseList, AMissingListIsCreatedWithTheThreeDefaults) {
    EXPECT_EQ(init_system_conf(&list), 0);
    EXPECT_EQ(rig::readFile(kListFile), "APP_INF_DB_PATH:/tmp/trend/bwdpi.app.db\n"
                                        "APP_CAT_DB_PATH:/tmp/trend/bwdpi.cat.db\n"
                                        "DEV_OS_DB_PATH:/tmp/trend/bwdpi.devdb.db\n");
    EXPECT_THAT(entries(), ElementsAre(Pair("APP_INF_DB_PATH", "/tmp/trend/bwdpi.app.db"),
                                       Pair("APP_CAT_DB_PATH", "/tmp/trend/bwdpi.cat.db"),
                                       Pair("DEV_OS_DB_PATH", "/tmp/trend/bwdpi.devdb.db")));
}

TEST_F(DatabaseList, AListThatCannotBeCreatedIsReported) {
    std::filesystem::remove("/tmp/trend");
    EXPECT_EQ(rig::standardError([this] { EXPECT_EQ(init_system_conf(&list), -1); }),
              "[init_system_conf(62)]: create /tmp/trend/bwdpi.txt error \n");
    EXPECT_TRUE(list_is_empty(&list));
}

TEST_F(DatabaseList, LinesAreKeyAndPathAndTheFirstMatchWins) {
    EXPECT_THAT(load("#KEY:/p\n #KEY:/q\napp_inf_db_path:/x\nK:/a b\nK: \t/c\nlast:/no-newline"),
                ElementsAre(Pair(" #KEY", "/q"), Pair("app_inf_db_path", "/x"), Pair("K", "/a"),
                            Pair("K", "/c"), Pair("last", "/no-newline")));
    EXPECT_STREQ(search_sys_conf(&list, "APP_INF_DB_PATH"), "/x");
    EXPECT_STREQ(search_sys_conf(&list, "k"), "/a");
    EXPECT_EQ(search_sys_conf(&list, "KEY"), nullptr);
}

TEST_F(DatabaseList, WhatALineLacksIsKeptFromTheLineBefore) {
    load("first:/1\n");
    EXPECT_THAT(load("\nno separator\n:/only-path\nempty:\nk:/2\n"),
                ElementsAre(Pair("first", "/1"), Pair("no separator", "/1"),
                            Pair("no separator", "/1"), Pair("empty", "/1"), Pair("k", "/2")));
}

TEST_F(DatabaseList, LongAndBinaryLinesStayInsideTheBuffers) {
    EXPECT_EQ(load(std::string(1 << 20, 'x')).size(), (1u << 20) / 255 + 1);
    const auto pieces = load("k:" + std::string(253, 'p') + "K2:/rest\n");
    EXPECT_THAT(pieces, ElementsAre(Pair("k", std::string(253, 'p')), Pair("K2", "/rest")));
    EXPECT_THAT(load(std::string("a:/1\0b:/2\n\0c:/3\n\xff:\xfe\n", 20)),
                ElementsAre(Pair("a", "/1"), Pair("a", "/1"), Pair("\xff", "\xfe")));
}

TEST_F(DatabaseList, AFreedListIsEmptyAndARemovedLinkIsPoisoned) {
    load("a:/1\nb:/2\n");
    free_system_conf(&list);
    EXPECT_EQ(list.next, &list);
    EXPECT_EQ(list.prev, &list);

    list_head link;
    list_append(&list, &link);
    list_remove(&link);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(link.next), 0x00100100u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(link.prev), 0x00200200u);
    EXPECT_TRUE(list_is_empty(&list));
}
