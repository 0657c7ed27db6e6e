#include "dpi/conf_app.h"

#include "support/fixture.h"

#include <cstring>
#include <tuple>

using testing::ElementsAre;

namespace {

constexpr const char *kDeviceFile = "/tmp/trend/bwdpi.devdb.db";
constexpr const char *kMappingFile = "/tmp/trend/TmToVosk_dev_mapping";
constexpr const char *kRuleFile = "/tmp/trend/bwdpi.rule.db";

// One device as a line: its ids, then its names.
std::string line(const dev_os &device) {
    std::string result;
    for (const uint32_t id : {device.vendor_id, device.os_id, device.class_id, device.type_id,
                              device.dev_id, device.family_id})
        result += std::to_string(id) + ",";
    for (const char *name : {device.vendor_name, device.os_name, device.class_name,
                             device.type_name, device.dev_name, device.family_name})
        result += std::string("\"") + name + "\",";
    result.back() = '\n';
    return result;
}

class DeviceDatabase : public rig::Fixture {
  protected:
    ~DeviceDatabase() override { free_dev_os(&devices); }

    void load(const std::string &content) {
        rig::writeFile(kDeviceFile, content);
        free_dev_os(&devices);
        EXPECT_EQ(init_dev_os(&devices), 0);
    }

    // The file's lines as they were understood.
    std::string loaded() {
        std::string result;
        for (list_head *link = devices.next; link != &devices; link = link->next)
            result += line(*LIST_RECORD(link, dev_os, list));
        return result;
    }

    std::string found(unsigned int vendor, unsigned int os, unsigned int device_class,
                      unsigned int type, unsigned int device, unsigned int family) {
        const auto *match = search_dev_os(&devices, vendor, os, device_class, type, device, family);
        return match != nullptr ? match->dev_name : "none";
    }

    list_head devices = LIST_HEAD_INIT(devices);
};

} // namespace

TEST_F(DeviceDatabase, ALineHasSixIdsAndSixQuotedNames) {
    const std::string whole = R"(1,2,3,4,5,4294967295,"vendor","os","class","t,y p0e","dev\","f")";
    load("#9" + whole + "\n" + whole + "\n" + R"(6,7,"v")" + "\n" +
         R"(8,9,10,11,12,13,"w","","lost")" + "\n");
    EXPECT_EQ(loaded(),
              whole + "\n" + R"(6,7,3,4,5,4294967295,"vendor","os","class","t,y p0e","dev\","f")" +
                  "\n" + R"(8,9,10,11,12,13,"w","os","class","t,y p0e","dev\","f")" + "\n");
}

TEST_F(DeviceDatabase, NamesLongerThanTheirBufferEndTheScanOfTheirLine) {
    const std::string most(99, 'm');
    load(R"(1,1,1,1,1,1,"v","o","c","t","d","f")"
         "\n"
         R"(2,2,2,2,2,2,")" +
         most +
         R"(","p","c","t","d","f")"
         "\n"
         R"(3,3,3,3,3,3,"n)" +
         most +
         R"(","lost","c","t","d","f")"
         "\n");
    EXPECT_EQ(loaded(), R"(1,1,1,1,1,1,"v","o","c","t","d","f")"
                        "\n"
                        R"(2,2,2,2,2,2,")" +
                            most +
                            R"(","p","c","t","d","f")"
                            "\n"
                            R"(3,3,3,3,3,3,"n)" +
                            most.substr(1) +
                            R"(","p","c","t","d","f")"
                            "\n");
    load(std::string(1 << 20, '"'));
    load(std::string("1,1\0,1\n", 7) + std::string(300, '7'));
}

TEST_F(DeviceDatabase, AQueryIdOfZeroMatchesAnyButNotAsAVendor) {
    load(R"(10,1,1,1,1,1,"v","o","c","t","first","f")"
         "\n"
         R"(10,2,1,5,1,1,"v","o","c","t","second","f")"
         "\n"
         R"(10,2,1,6,1,1,"v","o","c","t","third","f")"
         "\n"
         R"(11,1,1,5,1,1,"v","o","c","t","other vendor","f")"
         "\n");
    EXPECT_EQ(found(10, 0, 0, 0, 0, 0), "first");
    EXPECT_EQ(found(10, 0, 0, 5, 0, 0), "second");
    EXPECT_EQ(found(10, 2, 1, 6, 1, 1), "third");
    EXPECT_EQ(found(10, 0, 0, 7, 0, 0), "third") << "the last of the vendor";
    EXPECT_EQ(found(10, 1, 0, 5, 0, 0), "first") << "the last with vendor and os";
    EXPECT_EQ(found(10, 3, 0, 5, 0, 0), "none");
    EXPECT_EQ(found(12, 1, 1, 1, 1, 1), "none");
    EXPECT_EQ(found(0, 0, 0, 0, 0, 0), "none");
    // Each of the last four ids counts.
    EXPECT_EQ(found(10, 1, 9, 0, 0, 0) + found(10, 1, 0, 0, 9, 0) + found(10, 1, 0, 0, 0, 9),
              "firstfirstfirst");
    EXPECT_EQ(found(10, 0, 9, 0, 0, 0) + found(10, 0, 0, 0, 9, 0) + found(10, 0, 0, 0, 0, 9),
              "thirdthirdthird");
}

TEST_F(DeviceDatabase, TheMappingKeepsBothNamesAndIds) {
    rig::writeFile(kMappingFile, "#x\n1,\"Phone\",21,\"phone 0\"\n2,\"TV\"\n1,\"later\",3,\"x\"\n");
    list_head mapping = LIST_HEAD_INIT(mapping);
    ASSERT_EQ(init_dev_mapping(&mapping), 0);
    const dev_mapping *phone = search_dev_mapping(&mapping, 1);
    ASSERT_NE(phone, nullptr);
    EXPECT_EQ(phone->vosk_id, 21u);
    EXPECT_STREQ(phone->tm_name, "Phone");
    EXPECT_STREQ(phone->vosk_name, "phone 0");
    const dev_mapping *incomplete = search_dev_mapping(&mapping, 2);
    ASSERT_NE(incomplete, nullptr);
    EXPECT_STREQ(incomplete->tm_name, "TV");
    EXPECT_EQ(incomplete->vosk_id, 21u) << "kept from the line before";
    EXPECT_EQ(search_dev_mapping(&mapping, 3), nullptr);
    free_dev_mapping(&mapping);
    EXPECT_TRUE(list_is_empty(&mapping));
}

TEST_F(DeviceDatabase, RulesAreTrimmedAndCutAtTheirComment) {
    rig::writeFile(kRuleFile, "  12,Block list   # note\n13,Name  \n\t14,tab\t#x\n15, \\0 kept\n"
                              "#16,comment\n17#,cut\n" +
                                  std::string(300, 'y'));
    list_head rules = LIST_HEAD_INIT(rules);
    ASSERT_EQ(init_rule_db(&rules), 0);
    EXPECT_STREQ(search_rule_db(&rules, 12), "Block list");
    EXPECT_STREQ(search_rule_db(&rules, 13), "Name  ");
    EXPECT_STREQ(search_rule_db(&rules, 14), "tab");
    EXPECT_STREQ(search_rule_db(&rules, 15), " \\0 kept");
    EXPECT_EQ(search_rule_db(&rules, 16), nullptr);
    EXPECT_STREQ(search_rule_db(&rules, 17), " \\0 kept") << "kept from the line before";
    free_rule_db(&rules);
    EXPECT_TRUE(list_is_empty(&rules));
}

TEST_F(DeviceDatabase, MissingFilesAreReportedWithTheirDefaultPaths) {
    rig::writeFile("/tmp/trend/bwdpi.txt", "DEV_OS_DB_PATH:/opt/none\n");
    EXPECT_EQ(rig::standardError([this] {
                  EXPECT_EQ(init_dev_os(&devices), -1);
                  EXPECT_EQ(init_dev_mapping(&devices), -1);
                  EXPECT_EQ(init_rule_db(&devices), -1);
              }),
              "[init_dev_os(336)]: get /tmp/trend/bwdpi.devdb.db error \n"
              "[init_dev_mapping(467)]: get /tmp/trend/TmToVosk_dev_mapping error \n"
              "[init_rule_db(579)]: get /tmp/trend/bwdpi.rule.db error \n");
    EXPECT_EQ(found(0, 0, 0, 0, 0, 0), "none");
}

TEST(Trim, RemovesTheDelimiterAtBothEndsOnly) {
    struct {
        const char *text;
        char delimiter;
        const char *result;
    } const rows[] = {{"\t\t", '\t', ""}, {"xax", 'x', "a"},   {"xxaxbxx", 'x', "axb"},
                      {"", 'x', ""},      {"abc", 'x', "abc"}, {"abc", '\0', "abc"}};
    for (const auto &row : rows) {
        std::vector<char> text(row.text, row.text + strlen(row.text) + 1);
        _trim(text.data(), row.delimiter);
        EXPECT_STREQ(text.data(), row.result);
    }
}
