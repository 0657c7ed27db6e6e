#include "analytics/publish_verdict.h"

#include "common/file.h"
#include "support/fixture.h"

using enum Verdict;

namespace {

Verdict verdictOf(const char *method, const std::string &output) {
    rig::writeFile("/tmp/output", output);
    const File file(fopen("/tmp/output", "r"));
    return publish_verdict(publish_method(method), file.get());
}

} // namespace

class PublishVerdict : public rig::Fixture {};

TEST_F(PublishVerdict, TheWordsOfTheOutputDecideAndNothingElse) {
    using namespace std::string_literals;
    const std::string noise(1 << 20, 'x');
    const std::string upTo(120, 'x'); // leaves seven characters of the line's first 127
    const struct {
        const char *method;
        std::string output;
        Verdict verdict;
    } rows[] = {
        {"IoT", "", None},
        {"IoT", "connecting\n\nretrying\n", None},
        {"IoT", "connecting\nPublish done\n", Success},
        {"IoT", "publish done\nerror\n", None},
        {"IoT", "x ERRORS x\nPublish done\n", Failure},
        {"IoT", "Publish done\nERROR\n", Success},
        {"IoT", "Publish done ERROR\n", Failure},
        {"IoT", noise + "\nPublish done\n", Success},
        {"IoT", upTo + "xxERROR\n", Failure},
        {"IoT", upTo + "xxxERROR\n", None},
        {"IoT", "\xff\x01\0ERROR\nPublish done"s, Success},
        {"MCS", "", None},
        {"MCS", "X-Error: 4", Failure},
        {"MCS", "curl: Couldn't resolve host\n", Failure},
        {"MCS", "couldn't resolve X-error\n", Success},
        {"MCS", "\nX-Error\n", Success},
        {"MCS", noise + "X-Error", Success},
        {"MCS", "\0X-Error\n"s, Success},
        {"Other", "ERROR\nX-Error\nPublish done\n", None},
        {"", "ERROR\nPublish done\n", None},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(verdictOf(row.method, row.output), row.verdict)
            << row.method << ": " << row.output.substr(0, 140);
    }
}
