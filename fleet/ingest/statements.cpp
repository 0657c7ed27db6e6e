#include "ingest/statements.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace fleet {
namespace {

// Sums may have missed what reached the store this many seconds before them: an insert on its way,
// a clock that is behind, a replica that had not fetched it yet.
constexpr const char *kMargin = "600";

// Rows come for the days before, at most as far back as reports wait in buffer and outboxes; what
// arrived longer ago was looked at often enough.
constexpr const char *kLookBack = "8 * 86400";

// Within so long a report that comes again is known to be the same one, whatever its clock.
constexpr const char *kRepetition = "40 * 86400";

} // namespace

std::vector<std::string> statementsOf(std::string_view text) {
    std::vector<std::string> statements;
    std::string statement;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("--") || (statement.empty() && line.empty()))
            continue;
        const bool last = line.ends_with(';');
        if (last)
            line.pop_back();
        statement += line + "\n";
        if (last)
            statements.push_back(std::exchange(statement, {}));
    }
    return statements;
}

bool isDay(std::string_view text) {
    constexpr std::string_view kShape = "0000-00-00";
    return text.size() == kShape.size() &&
           std::equal(text.begin(), text.end(), kShape.begin(), [](char c, char shape) {
               return shape == '0' ? c >= '0' && c <= '9' : c == shape;
           });
}

// FINAL is over all rows that may be of the day, whatever the month of their arrival: a report that
// came twice around midnight of a month's end has a row in two partitions, which are never merged.
// Rows of the day can't have arrived earlier than the day before; the bound, which spares older
// partitions, leaves room for a report with a bad clock that comes again weeks later and is to
// count once. Groups that the day had before and no longer has become zero, because nothing else
// would replace them.
std::string rollupStatement(std::string_view day, std::uint64_t version) {
    const std::string date = "toDate('" + std::string(day) + "')";
    const std::string keys = "region, router, device, device_type, app_type, app_name";
    const std::string sums =
        "SELECT " + keys + ", toUInt64(1) AS n, " +
        "toUInt64(clock_bad OR duration < 0 ? 0 : duration) AS s, " +
        "upload AS u, download AS d FROM usage.reports FINAL WHERE day = " + date +
        " AND received >= toDateTime(" + date + ") - " + kRepetition;
    const std::string zeros = "SELECT " + keys + ", toUInt64(0) AS n, toUInt64(0) AS s, " +
                              "toUInt64(0) AS u, toUInt64(0) AS d FROM usage.daily FINAL " +
                              "WHERE day = " + date;
    return "INSERT INTO usage.daily SELECT " + date + ", " + keys +
           ", sum(n), sum(s), sum(u), sum(d), " + std::to_string(version) + " FROM (" + sums +
           " UNION ALL " + zeros + ") GROUP BY " + keys;
}

std::string dueDaysStatement() {
    return std::string("SELECT day FROM (SELECT day, max(toUInt32(stored)) AS latest "
                       "FROM usage.reports WHERE received > now() - ") +
           kLookBack +
           " GROUP BY day) ANY LEFT JOIN (SELECT day, max(version) AS made "
           "FROM usage.daily GROUP BY day) USING day WHERE latest + " +
           kMargin + " >= intDiv(made, 1000) ORDER BY day";
}

} // namespace fleet
