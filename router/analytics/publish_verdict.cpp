#include "analytics/publish_verdict.h"

#include "common/file.h"

#include <cstring>

inline namespace routerutil {

namespace {

Verdict iot_line_verdict(const char *line) {
    if (strstr(line, "ERROR") != nullptr)
        return Verdict::Failure;
    return strstr(line, "Publish done") != nullptr ? Verdict::Success : Verdict::None;
}

// The first line decides, deliberately: whatever it is without a failure's words, an empty one
// too, is a success.
Verdict mcs_line_verdict(const char *line) {
    const bool failed =
        strstr(line, "X-Error") != nullptr || strstr(line, "Couldn't resolve") != nullptr;
    return failed ? Verdict::Failure : Verdict::Success;
}

Verdict line_verdict(PublishMethod method, const char *line) {
    switch (method) {
    case PublishMethod::Iot:
        return iot_line_verdict(line);
    case PublishMethod::Mcs:
        return mcs_line_verdict(line);
    case PublishMethod::Other:
        break;
    }
    return Verdict::None;
}

} // namespace

PublishMethod publish_method(std::string_view text) {
    if (text == "IoT")
        return PublishMethod::Iot;
    return text == "MCS" ? PublishMethod::Mcs : PublishMethod::Other;
}

Verdict publish_verdict(PublishMethod method, FILE *output) {
    char line[128];
    Verdict verdict = Verdict::None;
    while (verdict == Verdict::None && read_line(output, line, sizeof line))
        verdict = line_verdict(method, line);
    return verdict;
}

} // namespace routerutil
