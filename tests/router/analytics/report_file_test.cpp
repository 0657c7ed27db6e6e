#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <climits>

class ReportFile : public rig::Fixture {};

TEST_F(ReportFile, ATextReplacesTheWholeFileWhichIsEchoed) {
    rig::writeFile("/tmp/a b.json", "an older and much longer report\n");
    for (const char *text : {"{\n\t\"a\": \"100%s\"\n}", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(rig::standardOutput(
                      [&] { EXPECT_EQ(ra_output_json_to_file(text, "/tmp/a b.json"), 0); }),
                  "{\n\t\"a\": \"100%s\"\n}");
    }
    rig::setSetting("AWS_JSON_DBGP", "1");
    EXPECT_EQ(
        rig::standardOutput([] { EXPECT_EQ(ra_output_json_to_file("{}", "/no/report"), -3); }),
        "[AWS_JSON_DBGP] ra_output_json_to_file(470):\n## Can not create JSON file.");
}

TEST_F(ReportFile, ConnectionFactsHaveThreeSlotsAndOneIndexThatClearsThem) {
    for (const unsigned int index : {0u, 1u, 2u, 4u, UINT_MAX})
        EXPECT_EQ(ra_set_internet_connection_info(index, 7), 0);
    for (const unsigned int index : {0u, 1u, 2u, 3u, UINT_MAX})
        EXPECT_EQ(ra_get_internet_connection_info(index), index < 3 ? 7 : 0);
    ra_set_internet_connection_info(3, 99);
    for (const unsigned int index : {0u, 1u, 2u, 3u})
        EXPECT_EQ(ra_get_internet_connection_info(index), 0u);
}
