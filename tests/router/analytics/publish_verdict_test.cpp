#include "analytics/publish_verdict.h"

#include "common/file.h"
#include "support/fixture.h"

using enum Verdict;

class PublishVerdict : public rig::Fixture {};

TEST_F(PublishVerdict, TheWordsOfTheOutputDecideAndNothingElse) {
    using namespace std::string_literals;
    const std::string upTo(122, 'x'); // leaves five characters of the line's first 127
    const struct {
        const char *method;
        std::string output;
        Verdict verdict;
    } rows[] = {
        {"IoT", "connecting\nPublish done\nERROR\n", Success},
        {"IoT", "x ERRORS x\nPublish done\n", Failure},
        {"IoT", upTo + "ERROR\n", Failure},
        {"IoT", upTo + "xERROR\n", None},
        {"IoT", "\xff\x01\0ERROR\nPublish done"s, Success},
        {"MCS", "", None},
        {"MCS", "X-Error: 4", Failure},
        {"MCS", "curl: Couldn't resolve host\n", Failure},
        {"MCS", "\nX-Error\n", Success},
    };
    for (const auto &row : rows) {
        rig::writeFile("/tmp/output", row.output);
        const File file(fopen("/tmp/output", "r"));
        EXPECT_EQ(publish_verdict(publish_method(row.method), file.get()), row.verdict)
            << row.method << ": " << row.output.substr(0, 140);
    }
}
