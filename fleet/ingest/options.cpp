#include "ingest/options.h"

#include <CLI/CLI.hpp>

namespace fleet {
namespace {

constexpr int kBadUsage = 2;

void addBuffer(CLI::App &app, Options &options) {
    app.add_option("--buffer", options.buffer.servers,
                   "addresses of the nodes: tls://10.20.0.11:4222,tls://10.20.0.12:4222")
        ->envname("FLEET_BUFFER")
        ->required();
    app.add_option("--buffer-user", options.buffer.user, "who to be there")
        ->envname("FLEET_BUFFER_USER");
    app.add_option("--buffer-password", options.buffer.password,
                   "better given by the environment, which others can't read")
        ->envname("FLEET_BUFFER_PASSWORD");
    app.add_option("--buffer-ca", options.buffer.authority,
                   "file with the certificates to trust, without it the system's")
        ->envname("FLEET_BUFFER_CA");
}

void addStore(CLI::App &app, Options &options) {
    app.add_option("--store", options.stores,
                   "addresses of the replicas: http://10.20.0.21:8123,http://10.20.0.22:8123")
        ->envname("FLEET_STORE")
        ->delimiter(',')
        ->allow_extra_args(false) // a DAY that follows is no address
        ->required();
}

void addSetup(CLI::App &app, Options &options) {
    CLI::App *setup = app.add_subcommand(
        "setup", "make consumer, limits, tables and questions; before any router is let in");
    addBuffer(*setup, options);
    addStore(*setup, options);
    setup->add_option("--buffer-bytes", options.limits.reports, "what the buffer may hold")
        ->envname("FLEET_BUFFER_BYTES")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    setup->add_option("--dead-bytes", options.limits.dead, "what the dead letters may take")
        ->envname("FLEET_DEAD_BYTES")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    setup->add_option("--copies", options.limits.copies, "nodes that keep each report")
        ->envname("FLEET_COPIES")
        ->check(CLI::Range(1, 5))
        ->capture_default_str();
    setup
        ->add_option("--ack-wait", options.limits.ackWait,
                     "seconds until a report that was fetched is given to another ingester")
        ->check(CLI::Range(5, 3600))
        ->capture_default_str();
    setup->callback([&options] { options.command = Command::kSetup; });
}

void addIngest(CLI::App &app, Options &options) {
    CLI::App *ingest = app.add_subcommand("ingest", "bring reports from the buffer into the store");
    addBuffer(*ingest, options);
    addStore(*ingest, options);
    auto *key = ingest->add_option_group("devices", "how device addresses are kept");
    key->add_option("--device-key-file", options.deviceKeyFile,
                    "as hashes under the key in this file, at least 16 bytes")
        ->envname("FLEET_DEVICE_KEY_FILE");
    key->add_flag("--plain-devices", options.plainDevices, "as they are")
        ->envname("FLEET_PLAIN_DEVICES");
    key->require_option(1);
    ingest->add_option("--listen", options.listen, "where /metrics and /healthz are served")
        ->envname("FLEET_LISTEN")
        ->capture_default_str();
    ingest
        ->add_option("--lag-limit", options.mostWaiting,
                     "reports that may wait before /healthz turns red")
        ->envname("FLEET_LAG_LIMIT")
        ->capture_default_str();
    ingest->callback([&options] { options.command = Command::kIngest; });
}

void addUpkeep(CLI::App &app, Options &options) {
    CLI::App *rollup = app.add_subcommand("rollup", "make the sums by day");
    addStore(*rollup, options);
    rollup->add_option("DAY", options.day,
                       "2026-11-21; without it every day that got rows since its sums were made");
    rollup->callback([&options] { options.command = Command::kRollup; });
    CLI::App *retain = app.add_subcommand("retain", "drop reports that are old; sums by day stay");
    addStore(*retain, options);
    retain->add_option("MONTHS", options.months, "whole months before this one that are kept")
        ->required()
        ->check(CLI::Range(1, 1200));
    retain->callback([&options] { options.command = Command::kRetain; });
}

} // namespace

CommandLine parseCommandLine(int argc, const char *const *argv) {
    CommandLine line;
    CLI::App app("Reports of many routers: from the buffer into the store, each once.",
                 "fleet-ingest");
    app.set_version_flag("--version", std::string("fleet-ingest ") + FLEET_VERSION);
    app.require_subcommand(0, 1); // one is asked for below: first a misspelt one is named
    addSetup(app, line.options);
    addIngest(app, line.options);
    addUpkeep(app, line.options);
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty())
            throw CLI::RequiredError::Subcommand(1);
    } catch (const CLI::ParseError &error) {
        line.leave = app.exit(error) == 0 ? 0 : kBadUsage;
    }
    return line;
}

} // namespace fleet
