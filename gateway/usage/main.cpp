// traffic-usage: who used what, now and over the year.
#include "usage/commands/commands.h"
#include "usage/commands/setup.h"
#include "usage/serve.h"
#include "usage/text.h"

#include <CLI/CLI.hpp>
#include <clocale>
#include <functional>
#include <iostream>

namespace usage {
namespace {

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;

// The command that was asked for, ready to run.
struct Chosen {
    Place place;
    std::function<int()> run;
};

CLI::App *addCommand(CLI::App &app, Chosen &chosen, const char *name, const char *what) {
    CLI::App *command = app.add_subcommand(name, what);
    command->add_option("--instance", chosen.place.instance,
                        "Which instance (the only one there is)");
    command->add_option("--state", chosen.place.state,
                        "Folder of the store (/var/lib/traffic-usage/INSTANCE)");
    command->add_option("--runtime", chosen.place.runtime,
                        "Folder of the socket (/run/traffic-usage/INSTANCE)");
    return command;
}

// A command that needs a service.
void runWith(CLI::App *command, Chosen &chosen, std::function<int(Service &)> run) {
    command->callback([&chosen, run = std::move(run)] {
        chosen.run = [&chosen, run] {
            chosen.place = findPlace(chosen.place);
            return run(*connectTo(chosen.place));
        };
    });
}

void addSettings(CLI::App *command, std::string &file) {
    command->add_option("--settings", file,
                        "File of what was set up (/etc/traffic-usage/INSTANCE.json)");
}

std::string settingsOf(const std::string &given, const Place &place) {
    return given.empty() ? settingsFile(place.instance) : given;
}

void addServe(CLI::App &app, Chosen &chosen) {
    CLI::App *command = addCommand(app, chosen, "serve", "Keep the history and answer questions");
    auto options = std::make_shared<ServeOptions>();
    auto limit = std::make_shared<std::string>("64M");
    command->add_option("--every", options->every, "Seconds between two samples (5)")
        ->check(CLI::Range(1, 300));
    command->add_option("--listen", options->listen,
                        "ADDRESS:PORT of the page, or none (as set up, else 127.0.0.1:8080)");
    auto settings = std::make_shared<std::string>();
    addSettings(command, *settings);
    command->add_option("--limit", *limit, "Size of the store, beyond which the oldest goes (64M)");
    command->callback([&chosen, options, limit, settings] {
        chosen.run = [&chosen, options, limit, settings] {
            const auto size = parseSize(*limit);
            if (!size || *size < (1U << 20U))
                throw UsageError("--limit needs a size of 1M or more, not '" + *limit + "'");
            options->limit = *size;
            options->place = findPlace(chosen.place);
            options->settings = readSettings(settingsOf(*settings, options->place));
            if (options->listen.empty())
                options->listen = options->settings.listen;
            return serve(*options);
        };
    });
}

void addSetup(CLI::App &app, Chosen &chosen) {
    CLI::App *command =
        addCommand(app, chosen, "setup", "Ask for a password, and show the page on the LAN");
    auto options = std::make_shared<SetupOptions>();
    command->add_option("--listen", options->listen,
                        "ADDRESS:PORT of the page (the address of the interface, port 8080)");
    addSettings(command, options->settings);
    command->callback([&chosen, options] {
        chosen.run = [&chosen, options] {
            const Place place = findPlace(chosen.place);
            options->instance = place.instance;
            options->settings = settingsOf(options->settings, place);
            return setUp(*options, std::cin, std::cout);
        };
    });
}

void addShow(CLI::App &app, Chosen &chosen) {
    CLI::App *command =
        addCommand(app, chosen, "show", "Tables of who used what; today's without a range");
    auto options = std::make_shared<ShowOptions>();
    const auto ask = [&](const char *flag, const char *parameter, const char *what) {
        return command->add_option_function<std::vector<std::string>>(
            flag,
            [options, parameter](const std::vector<std::string> &values) {
                for (const std::string &value : values)
                    options->parameters.emplace_back(parameter, value);
            },
            what);
    };
    CLI::Option *since =
        ask("--since", "from", "From then until now: 30m, 24h, 7d, 12mo, a time")->expected(1);
    ask("--from", "from", "From then: a time, a date, or so long ago")
        ->expected(1)
        ->excludes(since);
    ask("--to", "to", "Until then")->expected(1);
    ask("--by", "by", "Rows by device, application, category; several with commas")->expected(1);
    ask("--step", "step", "Rows for each hour, day or month")->expected(1);
    ask("--device", "device", "Only this device: a MAC address or a name; may come several times");
    ask("--application", "application", "Only this application");
    ask("--category", "category", "Only this category");
    ask("--sort", "sort", "By down, up, total or name (total)")->expected(1);
    ask("--top", "top", "Only so many rows, the rest as others")->expected(1);
    command->add_option("--format", options->format, "table, json or csv (table)")
        ->check(CLI::IsMember({"table", "json", "csv"}));
    runWith(command, chosen, [options](Service &service) { return show(service, *options); });
}

void addDevices(CLI::App &app, Chosen &chosen) {
    auto mac = std::make_shared<std::string>();
    auto name = std::make_shared<std::string>();
    CLI::App *naming = addCommand(app, chosen, "name", "Give a device a name of your own");
    naming->add_option("MAC", *mac, "Its address")->required();
    naming->add_option("NAME", *name, "Its name; empty for the one that the network knows")
        ->required();
    runWith(naming, chosen, [=](Service &service) { return nameDevice(service, *mac, *name); });
    CLI::App *forgetting =
        addCommand(app, chosen, "forget", "Forget a device; what it used goes to the others");
    forgetting->add_option("MAC", *mac, "Its address")->required();
    runWith(forgetting, chosen, [=](Service &service) { return forgetDevice(service, *mac); });
}

void addQuotas(CLI::App &app, Chosen &chosen) {
    CLI::App *quota = app.add_subcommand("quota", "Limits for a device or for all");
    quota->require_subcommand(0, 1);
    auto options = std::make_shared<QuotaOptions>();
    CLI::App *set = addCommand(*quota, chosen, "set", "Set a limit; prints its number");
    set->add_option("--device", options->mac, "For this MAC address (all devices together)");
    set->add_option("--total", options->total, "Bytes of both directions: 500M, 1.5G")->required();
    set->add_option("--per", options->per, "day or month")
        ->required()
        ->check(CLI::IsMember({"day", "month"}));
    set->add_option("--starts-on", options->startsOn, "Day on which a billing month begins (1)")
        ->check(CLI::Range(1, 31));
    runWith(set, chosen, [=](Service &service) { return setQuota(service, *options); });
    auto asJson = std::make_shared<bool>(false);
    CLI::App *list =
        addCommand(*quota, chosen, "list", "All limits, what was used, and an estimate");
    list->add_flag("--json", *asJson, "As JSON");
    runWith(list, chosen, [=](Service &service) { return listQuotas(service, *asJson); });
    auto number = std::make_shared<std::uint64_t>(0);
    CLI::App *remove = addCommand(*quota, chosen, "remove", "Remove a limit");
    remove->add_option("NUMBER", *number, "Its number")->required();
    runWith(remove, chosen, [=](Service &service) { return removeQuota(service, *number); });
    CLI::App *check = addCommand(*quota, chosen, "check", "Exit status 4 when a limit is passed");
    runWith(check, chosen, checkQuotas);
}

void addRest(CLI::App &app, Chosen &chosen) {
    auto times = std::make_shared<std::uint64_t>(0);
    CLI::App *watching = addCommand(app, chosen, "live", "Rates of now, until interrupted");
    watching->add_option("--count", *times, "So many samples, then end");
    runWith(watching, chosen, [=](Service &service) {
        return live(service, *times == 0 ? std::nullopt : std::optional(*times));
    });
    runWith(addCommand(app, chosen, "export", "The whole history as lines of JSON"), chosen,
            exportHistory);
    auto file = std::make_shared<std::string>();
    CLI::App *backup = addCommand(app, chosen, "backup", "Copy the store while it is in use");
    backup->add_option("FILE", *file, "Where to")->required();
    runWith(backup, chosen, [=](Service &service) { return backUp(service, *file); });
}

int run(int argc, char **argv) {
    CLI::App app("Keeps the history of who used what on a gateway, and answers questions about it.",
                 "traffic-usage");
    app.set_version_flag("--version", "traffic-usage " TRAFFIC_USAGE_VERSION);
    app.require_subcommand(0, 1); // one is asked for below: first a misspelt one is named
    Chosen chosen;
    addServe(app, chosen);
    addSetup(app, chosen);
    addShow(app, chosen);
    addDevices(app, chosen);
    addQuotas(app, chosen);
    addRest(app, chosen);
    try {
        app.parse(argc, argv);
        if (!chosen.run)
            throw CLI::RequiredError::Subcommand(1);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : kWrongUsage;
    }
    return chosen.run();
}

} // namespace
} // namespace usage

int main(int argc, char **argv) {
    setlocale(LC_CTYPE, "C.UTF-8"); // what is printed is UTF-8, and its width is asked for
    try {
        return usage::run(argc, argv);
    } catch (const usage::UsageError &error) {
        std::cerr << "traffic-usage: " << error.what() << '\n';
        return usage::kWrongUsage;
    } catch (const std::exception &error) {
        std::cerr << "traffic-usage: " << error.what() << '\n';
        return usage::kFailure;
    }
}
