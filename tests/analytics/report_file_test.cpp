#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <climits>
#include <cstring>

namespace {

constexpr const char *kReport = "/tmp/aws_json_dir/report.json";

int resultOf(const char *text, const char *path, std::string &printed) {
    int result = 1;
    printed = rig::standardOutput([&] { result = ra_output_json_to_file(text, path); });
    return result;
}

} // namespace

class ReportFile : public rig::Fixture {};

TEST_F(ReportFile, TheTextReplacesTheWholeFileAndIsEchoed) {
    rig::writeFile(kReport, "an older and much longer report\n");
    std::string printed;
    EXPECT_EQ(resultOf("{\n\t\"a\":\t\"100%s\"\n}", kReport, printed), 0);
    EXPECT_EQ(rig::readFile(kReport), "{\n\t\"a\":\t\"100%s\"\n}");
    EXPECT_EQ(printed, "{\n\t\"a\":\t\"100%s\"\n}");
}

TEST_F(ReportFile, AnEmptyOrMissingTextLeavesTheFileAndStillEchoesIt) {
    rig::writeFile(kReport, "old");
    std::string printed;
    for (const char *text : {"", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(resultOf(text, kReport, printed), 0);
        EXPECT_EQ(rig::readFile(kReport), "old");
        EXPECT_EQ(printed, "old");
    }
}

TEST_F(ReportFile, AFileThatCannotBeCreatedIsReportedOnlyWhenDebugging) {
    std::string printed;
    EXPECT_EQ(resultOf("{}", "/tmp/nowhere/report.json", printed), -3);
    EXPECT_EQ(printed, "");
    rig::setSetting("AWS_JSON_DBGP", "1");
    EXPECT_EQ(resultOf("{}", "/tmp/nowhere/report.json", printed), -3);
    EXPECT_EQ(printed,
              "[AWS_JSON_DBGP] ra_output_json_to_file(470):\n## Can not create JSON file.");
}

TEST_F(ReportFile, APathIsOneWordOfTheEchoAndTooLongOnesAreWrittenButNotEchoed) {
    std::string printed;
    EXPECT_EQ(resultOf("x", "/tmp/a; echo b", printed), 0);
    EXPECT_EQ(printed, "x");
    std::string folder = "/tmp";
    while (folder.size() < 1024)
        folder += "/" + std::string(100, 'd');
    rig::writeFile(folder + "/old", "");
    EXPECT_EQ(resultOf("x", (folder + "/new").c_str(), printed), 0);
    EXPECT_EQ(rig::readFile(folder + "/new"), "x");
    EXPECT_EQ(printed, "");
}

TEST_F(ReportFile, TheRootDirectoryIsCutAt127Characters) {
    const std::string before = ra_get_root_dir();
    EXPECT_EQ(before, "/tmp/media/nand/router-analytics");
    EXPECT_EQ(ra_set_root_dir(std::string(200, 'r').c_str()), 0);
    EXPECT_EQ(ra_get_root_dir(), std::string(127, 'r'));
    EXPECT_EQ(ra_set_root_dir(before.c_str()), 0);
    EXPECT_EQ(ra_get_root_dir(), before);
}

TEST_F(ReportFile, TheTimeStampPadsItsFieldsAndStaysInItsBuffer) {
    const int day[] = {2024, 1, 5};
    const int clock[] = {7, 8, 9};
    EXPECT_EQ(ra_set_json_timestamp(day, clock), 0);
    EXPECT_STREQ(ra_get_json_timestamp(), "20240105-070809");
    const int wild[] = {INT_MIN, INT_MIN, INT_MIN};
    ra_set_json_timestamp(wild, wild);
    EXPECT_EQ(strlen(ra_get_json_timestamp()), 63u);
}

TEST_F(ReportFile, ConnectionFactsHaveThreeSlotsAndOneIndexThatClearsThem) {
    for (unsigned int index = 0; index < 3; ++index)
        EXPECT_EQ(ra_set_internet_connection_info(index, index + 10), 0);
    for (const unsigned int index : {4u, UINT_MAX}) {
        EXPECT_EQ(ra_set_internet_connection_info(index, 99), 0);
        EXPECT_EQ(ra_get_internet_connection_info(index), 0u);
    }
    EXPECT_EQ(ra_get_internet_connection_info(0), 10u);
    EXPECT_EQ(ra_get_internet_connection_info(2), 12u);
    EXPECT_EQ(ra_set_internet_connection_info(3, 99), 0);
    for (unsigned int index = 0; index < 4; ++index)
        EXPECT_EQ(ra_get_internet_connection_info(index), 0u);
}
