#include "router/dpi/loaded.h"
#include "support/faults.h"

#include <filesystem>

using testing::ElementsAre;
using DatabaseList = rig::Fixture;

namespace {

constexpr const char *kListFile = "/tmp/trend/bwdpi.txt";

// The entries as "key|path".
std::vector<std::string> load(const std::string &content) {
    return rig::loaded<system_conf>(
        kListFile, content, init_system_conf, free_system_conf,
        [](system_conf &entry) { return std::string(entry.filename) + "|" + entry.filepath; });
}

} // namespace

TEST_F(DatabaseList, AMissingListIsCreatedWithTheThreeDefaults) {
    list_head list = LIST_HEAD_INIT(list);
    EXPECT_EQ(init_system_conf(&list), 0);
    EXPECT_STREQ(search_sys_conf(&list, "dev_os_db_path"), "/tmp/trend/bwdpi.devdb.db");
    EXPECT_EQ(rig::readFile(kListFile), "APP_INF_DB_PATH:/tmp/trend/bwdpi.app.db\n"
                                        "APP_CAT_DB_PATH:/tmp/trend/bwdpi.cat.db\n"
                                        "DEV_OS_DB_PATH:/tmp/trend/bwdpi.devdb.db\n");
    free_system_conf(&list);
    EXPECT_EQ(search_sys_conf(&list, "dev_os_db_path"), nullptr);
    std::filesystem::remove(kListFile);
    {
        const rig::Fault unreadable(rig::Call::kOpen, 3); // once it is made
        EXPECT_EQ(init_system_conf(&list), 0);
    }
    std::filesystem::remove_all("/tmp/trend");
    EXPECT_EQ(rig::standardError([&] { EXPECT_EQ(init_system_conf(&list), -1); }),
              "[init_system_conf(62)]: create /tmp/trend/bwdpi.txt error \n");
}

TEST_F(DatabaseList, LinesAreKeyAndPathAndKeepWhatTheyLackFromTheLineBefore) {
    EXPECT_THAT(load("#KEY:/p\n #KEY:/q\nkey:/x\nK:/a b\nK: \t/c\nlast:/no-newline"),
                ElementsAre(" #KEY|/q", "key|/x", "K|/a", "K|/c", "last|/no-newline"));
    EXPECT_THAT(load("\nno separator\n:/only-path\nempty:\nk:/2\n"),
                ElementsAre("last|/no-newline", "no separator|/no-newline",
                            "no separator|/no-newline", "empty|/no-newline", "k|/2"));
}

TEST_F(DatabaseList, LongAndBinaryLinesStayInsideTheBuffers) {
    const std::string path(253, 'p');
    EXPECT_THAT(load("k:" + path + "K2:/rest\n"), ElementsAre("k|" + path, "K2|/rest"));
    EXPECT_THAT(load(std::string("a:/1\0b:/2\n\0c:/3\n\xff:\xfe\n", 20)),
                ElementsAre("a|/1", "a|/1", "\xff|\xfe"));
}
