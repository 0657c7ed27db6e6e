// fleet-simulate: many routers against a buffer, and what the store should then hold.
#include "check/questions.h"
#include "check/verdict.h"
#include "simulate/run.h"

#include <mosquitto.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <curl/curl.h>

namespace fleet {
namespace {

std::atomic<bool> stop{false};

struct CheckOptions {
    std::string ledger;
    std::vector<std::string> stores;
    BufferAddress buffer;
    std::string key;
};

void addRun(CLI::App &app, RunOptions &options) {
    CLI::App *run = app.add_subcommand("run", "simulate routers");
    run->add_option("--nodes", options.nodes, "MQTT listeners, host:port")
        ->delimiter(',')
        ->required();
    run->add_option("--ca", options.authority, "certificate to trust")->required();
    run->add_option("--ledger", options.ledger, "file to write")->required();
    run->add_option("--seed", options.seed, "what everything follows from");
    run->add_option("--routers", options.routers, "how many")->check(CLI::Range(1U, 1000000U));
    run->add_option("--rate", options.rate, "reports a second, together");
    run->add_option("--records", options.records, "in a report")->check(CLI::Range(0U, 294U));
    run->add_option("--seconds", options.seconds, "how long reports are made");
    run->add_option("--drain", options.drain, "how long outboxes may take to empty");
    run->add_option("--bad-every", options.badEvery, "one report in so many is faulty");
    run->add_flag("--each", options.each, "connect for each report");
    run->add_flag("--refused", options.refused, "faulty reports are ones that a store refuses");
    run->add_flag("--odd", options.odd, "with reports of 0 and 294 records, and impostors");
}

void addCheck(CLI::App &app, CheckOptions &options) {
    CLI::App *check = app.add_subcommand("check", "hold the store against a ledger");
    check->add_option("--ledger", options.ledger, "file that a run wrote")->required();
    check->add_option("--store", options.stores, "replicas")->delimiter(',')->required();
    check->add_option("--device-key", options.key, "the operator's key");
    check->add_option("--buffer", options.buffer.servers, "nodes")->required();
    check->add_option("--buffer-ca", options.buffer.authority, "certificate to trust");
    check->add_option("--buffer-user", options.buffer.user, "who to be there");
    check->add_option("--buffer-password", options.buffer.password, "for it");
}

// Lines for the nodes' configuration: who may do what.
void printUsers(const RunOptions &options, const std::string &password) {
    printf("authorization { timeout: 20, users = [\n  { user: \"ingest\", password: \"%s\" }\n",
           password.c_str());
    for (std::uint32_t i = 0; i < options.routers; ++i)
        printf("  { user: \"%s\", password: \"%s\", permissions: { publish: { allow: "
               "[\"usage.%s.%s.report\"] }, subscribe: { deny: [\">\"] } } }\n",
               routerName(i).c_str(), passwordOf(options.seed, i).c_str(), regionName(i).c_str(),
               routerName(i).c_str());
    printf("] }\n");
}

bool print(const char *what, const Judgement &found) {
    printf("%-14s missing %llu  double %llu  altered %llu  unknown %llu\n", what,
           static_cast<unsigned long long>(found.missing),
           static_cast<unsigned long long>(found.twice),
           static_cast<unsigned long long>(found.altered),
           static_cast<unsigned long long>(found.unknown));
    return found.missing + found.twice + found.altered + found.unknown == 0;
}

// 0 when everything is there once, 3 when it is not.
int check(const CheckOptions &options) {
    const auto ledger = readLedger(options.ledger);
    const DeviceKey devices = options.key.empty() ? DeviceKey() : DeviceKey(options.key);
    Store store(options.stores);
    const Stored stored = askReports(store);
    const Letters letters = askLetters(options.buffer);
    std::size_t good = 0;
    std::size_t acknowledged = 0;
    for (const Entry &entry : ledger) {
        good += entry.key.fault == Fault::kNone ? 1 : 0;
        acknowledged += entry.fate == Fate::kAcknowledged ? 1 : 0;
    }
    printf(
        "ledger         reports %zu, of these bad on purpose %zu, acknowledged %zu; in the store "
        "%zu, dead letters %zu\n",
        ledger.size(), ledger.size() - good, acknowledged, stored.size(), letters.size());
    const bool whole = print("reports", judgeReports(ledger, stored, devices));
    const bool summed = print("daily", judgeDaily(ledger, stored, askDaily(store)));
    const bool buried = print("dead letters", judgeLetters(ledger, letters));
    return whole && summed && buried ? 0 : 3;
}

int dispatch(int argc, char **argv) {
    RunOptions run;
    CheckOptions checked;
    std::string password;
    CLI::App app("Many routers at once, and what became of their reports.", "fleet-simulate");
    app.require_subcommand(1);
    addRun(app, run);
    addCheck(app, checked);
    CLI::App *users = app.add_subcommand("users", "print the nodes' list of users");
    users->add_option("--routers", run.routers, "how many");
    users->add_option("--seed", run.seed, "what passwords follow from");
    users->add_option("--password", password, "of the ingesters")->required();
    CLI11_PARSE(app, argc, argv);
    if (users->parsed()) {
        printUsers(run, password);
        return 0;
    }
    if (app.got_subcommand("check"))
        return check(checked);
    return simulate(run, stop) == 0 ? 0 : 4;
}

} // namespace
} // namespace fleet

int main(int argc, char **argv) {
    signal(SIGPIPE, SIG_IGN);
    for (const int number : {SIGTERM, SIGINT})
        signal(number, [](int) { fleet::stop = true; });
    curl_global_init(CURL_GLOBAL_DEFAULT);
    mosquitto_lib_init();
    int status = 1;
    try {
        status = fleet::dispatch(argc, argv);
    } catch (const std::exception &error) {
        fprintf(stderr, "fleet-simulate: %s\n", error.what());
    }
    mosquitto_lib_cleanup(); // no nats_Close(): it frees what OpenSSL 3 frees again at exit
    return status;
}
