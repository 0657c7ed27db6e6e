#include "dpi/conf_app.h"

#include "support/fixture.h"

#include <algorithm>

using testing::ElementsAre;

namespace {

// One device as a line: its ids, then its names.
std::string line(const dev_os &device) {
    std::string result;
    for (const uint32_t id : {device.vendor_id, device.os_id, device.class_id, device.type_id,
                              device.dev_id, device.family_id})
        result += std::to_string(id) + ",";
    for (const char *name : {device.vendor_name, device.os_name, device.class_name,
                             device.type_name, device.dev_name, device.family_name})
        result += std::string("'") + name + "',";
    result.pop_back();
    return result;
}

class DeviceDatabase : public rig::Fixture {
  protected:
    ~DeviceDatabase() override { free_dev_os(&devices); }

    // Loads lines with ' in place of " and gives them back as they were understood.
    std::vector<std::string> load(const std::vector<std::string> &lines) {
        std::string content;
        for (const std::string &each : lines)
            content += each + "\n";
        std::replace(content.begin(), content.end(), '\'', '"');
        rig::writeFile("/tmp/trend/bwdpi.devdb.db", content);
        free_dev_os(&devices);
        EXPECT_EQ(init_dev_os(&devices), 0);
        std::vector<std::string> result;
        for (list_head *link = devices.next; link != &devices; link = link->next)
            result.push_back(line(*LIST_RECORD(link, dev_os, list)));
        return result;
    }

    list_head devices = LIST_HEAD_INIT(devices);
};

} // namespace

TEST_F(DeviceDatabase, ALineHasSixIdsAndSixQuotedNames) {
    const std::string whole = "1,2,3,4,5,4294967295,'vendor','os','class','t,y p0e','dev\\','f'";
    EXPECT_THAT(load({"#9" + whole, whole, "6,7,'v'", "8,9,10,11,12,13,'w','','lost'"}),
                ElementsAre(whole,
                            "6,7,3,4,5,4294967295,'vendor','os','class','t,y p0e','dev\\','f'",
                            "8,9,10,11,12,13,'w','os','class','t,y p0e','dev\\','f'"));
}

TEST_F(DeviceDatabase, NamesLongerThanTheirBufferEndTheScanOfTheirLine) {
    const std::string most(99, 'm');
    const std::string rest = "','p','c','t','d','f'";
    EXPECT_THAT(
        load({"2,2,2,2,2,2,'" + most + rest, "3,3,3,3,3,3,'n" + most + "','lost','c'"}),
        ElementsAre("2,2,2,2,2,2,'" + most + rest, "3,3,3,3,3,3,'n" + most.substr(1) + rest));
    load({std::string(1 << 20, '\'')});
    load({std::string("1,1\0,1", 6), std::string(450, '7')});
}

TEST_F(DeviceDatabase, AQueryIdOfZeroMatchesAnyButNotAsAVendor) {
    load({"10,1,1,1,1,1,'v','o','c','t','first','f'", "10,2,1,5,1,1,'v','o','c','t','second','f'",
          "10,2,1,6,1,1,'v','o','c','t','third','f'", "11,1,1,5,1,1,'v','o','c','t','other','f'"});
    struct {
        unsigned int vendor, os, device_class, type, device, family;
        const char *found;
    } const rows[] = {
        {10, 0, 0, 0, 0, 0, "first"},
        {10, 0, 0, 5, 0, 0, "second"},
        {10, 2, 1, 6, 1, 1, "third"},
        {10, 3, 0, 5, 0, 0, "none"},
        {12, 1, 1, 1, 1, 1, "none"},
        {0, 0, 0, 0, 0, 0, "none"},
        // Else the last of the vendor and os: each of the other four ids counts.
        {10, 1, 0, 5, 0, 0, "first"},
        {10, 0, 9, 0, 0, 0, "third"},
        {10, 0, 0, 7, 0, 0, "third"},
        {10, 0, 0, 0, 9, 0, "third"},
        {10, 0, 0, 0, 0, 9, "third"},
    };
    for (const auto &row : rows) {
        const auto *match = search_dev_os(&devices, row.vendor, row.os, row.device_class, row.type,
                                          row.device, row.family);
        EXPECT_STREQ(match != nullptr ? match->dev_name : "none", row.found) << &row - rows;
    }
}

TEST_F(DeviceDatabase, TheMappingKeepsBothNamesAndIds) {
    rig::writeFile("/tmp/trend/TmToVosk_dev_mapping",
                   "#x\n1,\"Phone\",21,\"phone 0\"\n2,\"TV\"\n1,\"later\",3,\"x\"\n");
    list_head mapping = LIST_HEAD_INIT(mapping);
    ASSERT_EQ(init_dev_mapping(&mapping), 0);
    std::string found;
    for (const unsigned int type : {1, 2, 3}) {
        if (const dev_mapping *match = search_dev_mapping(&mapping, type))
            found += std::to_string(match->vosk_id) + match->tm_name + match->vosk_name + ";";
    }
    EXPECT_EQ(found, "21Phonephone 0;21TVphone 0;"); // the second kept what its line lacks
    free_dev_mapping(&mapping);
}

TEST_F(DeviceDatabase, RulesAreTrimmedAndCutAtTheirComment) {
    rig::writeFile("/tmp/trend/bwdpi.rule.db",
                   "  12,Block list   # note\n13,Name  \n\t14,tab\t#x\n15, \\0 kept\n"
                   "#16,comment\n17#,cut\n" +
                       std::string(300, 'y'));
    list_head rules = LIST_HEAD_INIT(rules);
    ASSERT_EQ(init_rule_db(&rules), 0);
    const char *const names[] = {
        "Block list", "Name  ", "tab",
        " \\0 kept",  nullptr,  " \\0 kept"}; // the last is kept from the line before
    for (unsigned int i = 0; i < std::size(names); ++i)
        EXPECT_STREQ(search_rule_db(&rules, 12 + i), names[i]);
    free_rule_db(&rules);
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
}

TEST(Trim, RemovesTheDelimiterAtBothEndsOnly) {
    struct {
        std::string text;
        char delimiter;
        const char *result;
    } rows[] = {{"\t\t", '\t', ""},
                {"xax", 'x', "a"},
                {"xxaxbxx", 'x', "axb"},
                {"", 'x', ""},
                {"abc", '\0', "abc"}};
    for (auto &row : rows) {
        _trim(row.text.data(), row.delimiter);
        EXPECT_STREQ(row.text.c_str(), row.result);
    }
}
