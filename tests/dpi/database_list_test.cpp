#include "dpi/conf_app.h"

#include "support/fixture.h"

#include <filesystem>

using testing::ElementsAre;

namespace {

constexpr const char *kListFile = "/tmp/trend/bwdpi.txt";

class DatabaseList : public rig::Fixture {
  protected:
    ~DatabaseList() override { free_system_conf(&list); }

    std::vector<std::string> load(const std::string &content) {
        rig::writeFile(kListFile, content);
        return load();
    }

    // The entries as "key|path".
    std::vector<std::string> load() {
        free_system_conf(&list);
        EXPECT_EQ(init_system_conf(&list), 0);
        std::vector<std::string> result;
        for (list_head *link = list.next; link != &list; link = link->next) {
            const auto *entry = LIST_RECORD(link, system_conf, list);
            result.push_back(std::string(entry->filename) + "|" + entry->filepath);
        }
        return result;
    }

    list_head list = LIST_HEAD_INIT(list);
};

} // namespace

TEST_F(DatabaseList, AMissingListIsCreatedWithTheThreeDefaults) {
    EXPECT_THAT(load(), ElementsAre("APP_INF_DB_PATH|/tmp/trend/bwdpi.app.db",
                                    "APP_CAT_DB_PATH|/tmp/trend/bwdpi.cat.db",
                                    "DEV_OS_DB_PATH|/tmp/trend/bwdpi.devdb.db"));
    EXPECT_EQ(rig::readFile(kListFile), "APP_INF_DB_PATH:/tmp/trend/bwdpi.app.db\n"
                                        "APP_CAT_DB_PATH:/tmp/trend/bwdpi.cat.db\n"
                                        "DEV_OS_DB_PATH:/tmp/trend/bwdpi.devdb.db\n");
    std::filesystem::remove_all("/tmp/trend");
    EXPECT_EQ(rig::standardError([this] { EXPECT_EQ(init_system_conf(&list), -1); }),
              "[init_system_conf(62)]: create /tmp/trend/bwdpi.txt error \n");
}

TEST_F(DatabaseList, LinesAreKeyAndPathAndTheFirstMatchWins) {
    EXPECT_THAT(load("#KEY:/p\n #KEY:/q\napp_inf_db_path:/x\nK:/a b\nK: \t/c\nlast:/no-newline"),
                ElementsAre(" #KEY|/q", "app_inf_db_path|/x", "K|/a", "K|/c", "last|/no-newline"));
    EXPECT_STREQ(search_sys_conf(&list, "APP_INF_DB_PATH"), "/x");
    EXPECT_STREQ(search_sys_conf(&list, "k"), "/a");
    EXPECT_EQ(search_sys_conf(&list, "KEY"), nullptr);
}

TEST_F(DatabaseList, WhatALineLacksIsKeptFromTheLineBefore) {
    load("first:/1\n");
    EXPECT_THAT(load("\nno separator\n:/only-path\nempty:\nk:/2\n"),
                ElementsAre("first|/1", "no separator|/1", "no separator|/1", "empty|/1", "k|/2"));
}

TEST_F(DatabaseList, LongAndBinaryLinesStayInsideTheBuffers) {
    EXPECT_EQ(load(std::string(1 << 20, 'x')).size(), (1u << 20) / 255 + 1);
    const std::string path(253, 'p');
    EXPECT_THAT(load("k:" + path + "K2:/rest\n"), ElementsAre("k|" + path, "K2|/rest"));
    EXPECT_THAT(load(std::string("a:/1\0b:/2\n\0c:/3\n\xff:\xfe\n", 20)),
                ElementsAre("a|/1", "a|/1", "\xff|\xfe"));
}

TEST_F(DatabaseList, ARemovedLinkIsPoisoned) {
    list_head link;
    list_append(&list, &link);
    list_remove(&link);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(link.next), 0x00100100u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(link.prev), 0x00200200u);
}
