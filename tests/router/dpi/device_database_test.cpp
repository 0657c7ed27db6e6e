#include "router/dpi/loaded.h"

#include <algorithm>
#include <array>
#include <filesystem>

using testing::ElementsAre;
using DeviceDatabase = rig::Fixture;

namespace {

constexpr const char *kDeviceFile = "/tmp/trend/bwdpi.devdb.db";

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

// Loads lines with ' in place of " and gives them back as they were understood.
std::vector<std::string> load(std::string content) {
    std::replace(content.begin(), content.end(), '\'', '"');
    return rig::loaded<dev_os>(kDeviceFile, content, init_dev_os, free_dev_os, line);
}

} // namespace

TEST_F(DeviceDatabase, ALineHasSixIdsAndSixQuotedNames) {
    const std::string whole = "1,2,3,4,5,4294967295,'vendor','os','class','t,y p0e','dev\\','f'";
    EXPECT_THAT(load("#9" + whole + "\n" + whole + "\n6,7,'v'\n8,9,10,11,12,13,'w','','lost'"),
                ElementsAre(whole,
                            "6,7,3,4,5,4294967295,'vendor','os','class','t,y p0e','dev\\','f'",
                            "8,9,10,11,12,13,'w','os','class','t,y p0e','dev\\','f'"));
}

TEST_F(DeviceDatabase, NamesLongerThanTheirBufferEndTheScanOfTheirLine) {
    const std::string most = "'" + std::string(99, 'm') + "'";
    const std::string rest = "," + most + "," + most + ",'t','d','f'";
    EXPECT_THAT(
        load("2,2,2,2,2,2," + most + rest + "\n3,3,3,3,3,3,'n" + most.substr(1) + ",'lost'"),
        ElementsAre("2,2,2,2,2,2," + most + rest, "3,3,3,3,3,3,'n" + most.substr(2) + rest));
    EXPECT_EQ(load(std::string(800, '\'')).size(), 3u); // pieces of 399 characters
}

TEST_F(DeviceDatabase, AQueryIdOfZeroMatchesAnyButNotAsAVendor) {
    rig::writeFile(kDeviceFile, "10,1,1,1,1,1,\"v\",\"o\",\"c\",\"t\",\"first\",\"f\"\n"
                                "10,2,1,5,1,1,\"v\",\"o\",\"c\",\"t\",\"second\",\"f\"\n"
                                "10,2,1,6,1,1,\"v\",\"o\",\"c\",\"t\",\"third\",\"f\"\n");
    list_head devices = LIST_HEAD_INIT(devices);
    ASSERT_EQ(init_dev_os(&devices), 0);
    const std::pair<std::array<unsigned int, 6>, const char *> rows[] = {
        {{10, 0, 0, 0, 0, 0}, "first"},
        {{10, 0, 0, 5, 0, 0}, "second"},
        {{10, 2, 1, 6, 1, 1}, "third"},
        {{10, 3, 0, 5, 0, 0}, "none"},
        {{0, 0, 0, 0, 0, 0}, "none"},
        // Else the last of the vendor and os: each of the other four ids counts.
        {{10, 0, 9, 0, 0, 0}, "third"},
        {{10, 0, 0, 7, 0, 0}, "third"},
        {{10, 0, 0, 0, 9, 0}, "third"},
        {{10, 0, 0, 0, 0, 9}, "third"},
    };
    for (const auto &[id, found] : rows) {
        const auto *match = search_dev_os(&devices, id[0], id[1], id[2], id[3], id[4], id[5]);
        EXPECT_STREQ(match != nullptr ? match->dev_name : "none", found) << id[3];
    }
    free_dev_os(&devices);
}

TEST_F(DeviceDatabase, RulesAreTrimmedAndCutAtTheirComment) {
    EXPECT_THAT(rig::loaded<app_cat>(
                    "/tmp/trend/bwdpi.rule.db",
                    "  12,Block list   # note\n13,Name  \n\t14,tab\t#x\n#16,comment\n17#,cut\n   ",
                    init_rule_db, free_rule_db,
                    [](app_cat &rule) { return std::to_string(rule.cat_id) + rule.cat_name; }),
                ElementsAre("12Block list", "13Name  ", "14tab", "17tab", "17tab"));
}

TEST_F(DeviceDatabase, AMappingNamesBothSides) {
    const char *const path = "/tmp/trend/TmToVosk_dev_mapping";
    const auto show = [](dev_mapping &each) {
        return std::to_string(each.tm_id) + each.tm_name + std::to_string(each.vosk_id) +
               each.vosk_name;
    };
    EXPECT_THAT(rig::loaded<dev_mapping>(path, "1,\"tm\",2,\"vosk\"\n3,\"t\"\n", init_dev_mapping,
                                         free_dev_mapping, show),
                ElementsAre("1tm2vosk", "3t2vosk"));
    list_head list = LIST_HEAD_INIT(list);
    init_dev_mapping(&list);
    EXPECT_EQ(search_dev_mapping(&list, 3)->tm_id, 3u);
    EXPECT_EQ(search_dev_mapping(&list, 2), nullptr);
    free_dev_mapping(&list);
    std::filesystem::remove(path);
    EXPECT_EQ(rig::standardError([&] {
                  EXPECT_EQ(init_dev_mapping(&list) + init_rule_db(&list) + init_dev_os(&list), -3);
              }),
              "[init_dev_mapping(467)]: get /tmp/trend/TmToVosk_dev_mapping error \n"
              "[init_rule_db(579)]: get /tmp/trend/bwdpi.rule.db error \n"
              "[init_dev_os(336)]: get /tmp/trend/bwdpi.devdb.db error \n");
}
