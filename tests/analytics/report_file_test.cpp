#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <climits>

namespace {

// "result printed"
std::string output(const char *text, const std::string &path) {
    int result = 1;
    const std::string printed =
        rig::standardOutput([&] { result = ra_output_json_to_file(text, path.c_str()); });
    return std::to_string(result) + " " + printed;
}

} // namespace

class ReportFile : public rig::Fixture {};

TEST_F(ReportFile, TheTextReplacesTheWholeFileAndIsEchoed) {
    rig::writeFile("/tmp/a b.json", "an older and much longer report\n");
    EXPECT_EQ(output("{\n\t\"a\": \"100%s\"\n}", "/tmp/a b.json"), "0 {\n\t\"a\": \"100%s\"\n}");
    EXPECT_EQ(rig::readFile("/tmp/a b.json"), "{\n\t\"a\": \"100%s\"\n}");
    for (const char *none : {"", static_cast<const char *>(nullptr)})
        EXPECT_EQ(output(none, "/tmp/a b.json"), "0 {\n\t\"a\": \"100%s\"\n}");

    std::string folder = "/tmp"; // too long for the command, not for a file
    while (folder.size() < 1024)
        folder += "/" + std::string(100, 'd');
    rig::writeFile(folder + "/old", "");
    EXPECT_EQ(output("x", folder + "/new"), "0 ");
    EXPECT_EQ(rig::readFile(folder + "/new"), "x");
}

TEST_F(ReportFile, AFileThatCannotBeCreatedIsReportedOnlyWhenDebugging) {
    EXPECT_EQ(output("{}", "/tmp/nowhere/report.json"), "-3 ");
    rig::setSetting("AWS_JSON_DBGP", "1");
    EXPECT_EQ(output("{}", "/tmp/nowhere/report.json"),
              "-3 [AWS_JSON_DBGP] ra_output_json_to_file(470):\n## Can not create JSON file.");
}

TEST_F(ReportFile, TextsStayInTheirBuffers) {
    const std::string before = ra_get_root_dir();
    EXPECT_EQ(before, "/tmp/media/nand/router-analytics");
    EXPECT_EQ(ra_set_root_dir(std::string(200, 'r').c_str()), 0);
    EXPECT_EQ(ra_get_root_dir(), std::string(127, 'r'));
    ra_set_root_dir(before.c_str());

    const int day[] = {2024, 1, 5};
    const int clock[] = {7, 8, 9};
    EXPECT_EQ(ra_set_json_timestamp(day, clock), 0);
    EXPECT_STREQ(ra_get_json_timestamp(), "20240105-070809");
}

TEST_F(ReportFile, ConnectionFactsHaveThreeSlotsAndOneIndexThatClearsThem) {
    for (const unsigned int index : {0u, 1u, 2u, 4u, UINT_MAX})
        EXPECT_EQ(ra_set_internet_connection_info(index, index + 10), 0);
    for (const unsigned int index : {0u, 1u, 2u, 3u, 4u, UINT_MAX})
        EXPECT_EQ(ra_get_internet_connection_info(index), index < 3 ? index + 10 : 0);
    EXPECT_EQ(ra_set_internet_connection_info(3, 99), 0);
    for (const unsigned int index : {0u, 1u, 2u, 3u})
        EXPECT_EQ(ra_get_internet_connection_info(index), 0u);
}
