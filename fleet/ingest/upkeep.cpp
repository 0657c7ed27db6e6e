#include "ingest/upkeep.h"

#include "ingest/log.h"
#include "ingest/statements.h"

#include <chrono>
#include <cstdio>
#include <sstream>
#include <vector>

namespace fleet {
namespace {

std::string demand(const Answer &answer, const std::string &what) {
    if (answer.result != StoreResult::kDone)
        throw StoreError(what + ": " + answer.text);
    return answer.text;
}

std::vector<std::string> lines(const std::string &text) {
    std::vector<std::string> list;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        list.push_back(line);
    return list;
}

std::uint64_t now() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}

// The replica that is asked has what the other one took.
void synchronise(Store &store, const char *table) {
    demand(store.ask(std::string("SYSTEM SYNC REPLICA usage.") + table), "waiting for the replica");
}

std::string keptFrom(Store &store) {
    synchronise(store, "retention");
    const auto found = lines(
        demand(store.ask("SELECT toString(kept_from) FROM usage.retention FINAL"), "retention"));
    return found.empty() ? "0000-00-00" : found.front();
}

void rollUpDay(Store &store, const std::string &day, const std::string &kept) {
    if (day < kept) {
        logLine(day + " lies before what is kept (" + kept + "): its sums stay as they are");
        return;
    }
    demand(store.ask(rollupStatement(day, now())), "the sums of " + day);
    printf("%s\n", day.c_str());
}

} // namespace

void setUpStore(Store &store) {
    for (std::size_t replica = 0; replica < store.replicas(); ++replica)
        for (const auto text : {kTables, kQuestions})
            for (const std::string &statement : statementsOf(text))
                demand(store.askReplica(replica, statement),
                       "replica " + std::to_string(replica + 1) + ", " + statement.substr(0, 60));
}

void rollUp(Store &store, const std::string &day) {
    if (!day.empty() && !isDay(day))
        throw StoreError("'" + day + "' is no day like 2026-11-21");
    synchronise(store, "reports");
    synchronise(store, "daily");
    const std::string kept = keptFrom(store);
    const auto days = day.empty() ? lines(demand(store.ask(dueDaysStatement()), "the days due"))
                                  : std::vector{day};
    for (const std::string &due : days)
        rollUpDay(store, due, kept);
}

void retain(Store &store, int months) {
    rollUp(store, "");
    const std::string first =
        lines(demand(store.ask("SELECT toString(addMonths(toStartOfMonth(today()), -" +
                               std::to_string(months) + "))"),
                     "the month"))
            .at(0);
    // Said before anything is dropped: from here on no day before it is summed up again.
    demand(store.insert("usage.retention (one, kept_from)", "1\t" + first + "\n"), "retention");
    const std::string month = first.substr(0, 4) + first.substr(5, 2);
    for (const char *table : {"reports", "arrivals"}) {
        const std::string old =
            "SELECT DISTINCT partition FROM system.parts WHERE database = 'usage' "
            "AND table = '" +
            std::string(table) +
            "' AND active "
            "AND partition < '" +
            month + "' ORDER BY partition";
        for (const std::string &partition : lines(demand(store.ask(old), "partitions"))) {
            demand(store.ask("ALTER TABLE usage." + std::string(table) + " DROP PARTITION " +
                             partition),
                   "dropping " + partition);
            printf("%s %s\n", table, partition.c_str());
        }
    }
}

} // namespace fleet
