// The `nvram` command: the settings store at a shell's reach.
#include "settings/store.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fstream>
#include <iostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {
constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kMisused = 2;

constexpr std::string_view kHelp =
    R"(Usage: nvram get NAME
       nvram set NAME=VALUE...
       nvram unset NAME...
       nvram show
       nvram import FILE
       nvram save
       nvram --help | --version

The settings store of the workstation router. Every process sees a change at once.

  get      print the value of a setting; an empty line when it is unset
  set      set settings, all of them or none
  unset    remove settings, all of them or none
  show     print all settings as NAME=VALUE lines, sorted by name
  import   set what the NAME=VALUE lines of FILE ("-": standard input) say, all or none;
           blank lines and lines that begin with # are skipped; nothing else is interpreted
  save     put all settings on permanent storage

What show prints, import takes. A setting that no line can hold (a line break in its value, for
example) is shown as a comment; get prints its value.

A name has 1 to 511 bytes, a value at most 65536.

Environment: NVRAM_DIR is the folder of the store, /var/lib/router-nvram without it; it is created
when missing.

Exit status: 0 done, 1 failed, 2 wrong usage.
)";

using Arguments = std::span<const char *const>;

struct Assignment {
    std::string_view name;
    std::string_view value;
};

int misused(const std::string &problem) {
    std::cerr << "nvram: " << problem << "\nTry 'nvram --help'.\n";
    return kMisused;
}

int failed(const std::string &problem) {
    std::cerr << "nvram: " << problem << '\n';
    return kFailed;
}

int store_failed(int result) {
    return failed("settings store in " + std::string(store::directory()) + ": " +
                  store::reason(result));
}

// Empty when the store takes a setting of this name.
std::string name_problem(std::string_view name) {
    if (name.empty())
        return "the name is empty";
    if (!store::valid_name(name))
        return "the name is longer than " + std::to_string(store::kLargestName) + " bytes";
    return "";
}

// Splits NAME=VALUE. Gives what is wrong with it, nothing when it is good.
std::string split(std::string_view text, Assignment &assignment) {
    if (text.find('\0') != std::string_view::npos)
        return "a NUL byte";
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos)
        return "no '=' in '" + std::string(text.substr(0, 40)) + "'";
    assignment = {text.substr(0, equals), text.substr(equals + 1)};
    if (!store::valid_value(assignment.value))
        return "the value is longer than " + std::to_string(store::kLargestValue) + " bytes";
    return name_problem(assignment.name);
}

bool is_skipped(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t\r");
    return first == std::string_view::npos || line[first] == '#';
}

int get(Arguments names) {
    const std::string_view name = names[0];
    if (const std::string problem = name_problem(name); !problem.empty())
        return misused(problem);
    std::string value;
    {
        const store::Reading reading; // ends before a slow reader of the output is waited for
        if (reading.result() != 0)
            return store_failed(reading.result());
        value = reading.value(name);
    }
    std::cout << value << '\n';
    return kDone;
}

int set_all(const std::vector<Assignment> &settings) {
    store::Writing writing;
    for (const Assignment &setting : settings)
        if (const int result = writing.set(setting.name, setting.value); result != 0)
            return store_failed(result);
    const int result = writing.commit();
    return result == 0 ? kDone : store_failed(result);
}

int set(Arguments texts) {
    std::vector<Assignment> settings;
    for (const std::string_view text : texts) {
        Assignment setting;
        if (const std::string problem = split(text, setting); !problem.empty())
            return misused(problem);
        settings.push_back(setting);
    }
    return set_all(settings);
}

int unset(Arguments names) {
    store::Writing writing;
    for (const std::string_view name : names) {
        if (const std::string problem = name_problem(name); !problem.empty())
            return misused(problem);
        if (const int result = writing.unset(name); result != 0)
            return store_failed(result);
    }
    const int result = writing.commit();
    return result == 0 ? kDone : store_failed(result);
}

// Whether import would read NAME=VALUE back as this setting.
bool fits_a_line(std::string_view name, std::string_view value) {
    return name.find_first_of("=\n") == std::string_view::npos && !is_skipped(name) &&
           value.find('\n') == std::string_view::npos;
}

// The line that show prints for a setting.
std::string shown(std::string_view name, std::string_view value) {
    std::string line(name);
    if (fits_a_line(name, value))
        return line.append("=").append(value) += '\n';
    std::replace(line.begin(), line.end(), '\n', ' '); // what follows it would be a setting
    return "# no line can hold this setting: " + line + '\n';
}

// Printed only when the reading is over: a slow pager must not keep old values alive.
int show(Arguments) {
    std::string lines;
    const int result = store::Reading().each(
        [&lines](std::string_view name, std::string_view value) { lines += shown(name, value); });
    if (result != 0)
        return store_failed(result);
    std::cout << lines;
    return kDone;
}

// Reads to the end first: a slow input must not keep other writers waiting.
int import_lines(std::istream &input, const std::string &file) {
    std::deque<std::string> lines;
    std::vector<Assignment> settings;
    std::string line;
    for (int number = 1; std::getline(input, line); ++number) {
        if (is_skipped(line))
            continue;
        Assignment setting;
        const std::string &kept = lines.emplace_back(std::move(line));
        if (const std::string problem = split(kept, setting); !problem.empty()) {
            std::cerr << "nvram: " << file << ':' << number << ": " << problem
                      << "; nothing was imported\n";
            return kFailed;
        }
        settings.push_back(setting);
    }
    if (!input.eof())
        return failed(file + ": " + strerror(errno));
    return set_all(settings);
}

int import_file(Arguments files) {
    const std::string file = files[0];
    if (file == "-")
        return import_lines(std::cin, "standard input");
    std::ifstream input(file, std::ios::binary);
    if (!input)
        return failed(file + ": " + strerror(errno));
    return import_lines(input, file);
}

int save(Arguments) {
    const int result = store::save();
    return result == 0 ? kDone : store_failed(result);
}

int help(Arguments) {
    std::cout << kHelp;
    return kDone;
}

int version(Arguments) {
    std::cout << "nvram " PROJECT_VERSION "\n";
    return kDone;
}

struct Command {
    std::string_view name;
    std::size_t fewest;
    std::size_t most;
    int (*run)(Arguments arguments);
};
constexpr std::size_t kAny = -1;
constexpr Command kCommands[] = {
    {"get", 1, 1, get},     {"set", 1, kAny, set}, {"unset", 1, kAny, unset},
    {"show", 0, 0, show},   {"save", 0, 0, save},  {"import", 1, 1, import_file},
    {"--help", 0, 0, help}, {"-h", 0, 0, help},    {"--version", 0, 0, version},
};

int run(Arguments words) {
    if (words.empty())
        return misused("no command given");
    const Arguments arguments = words.subspan(1);
    for (const Command &command : kCommands) {
        if (command.name != words[0])
            continue;
        if (arguments.size() < command.fewest)
            return misused(std::string(command.name) + ": an argument is missing");
        if (arguments.size() > command.most)
            return misused(std::string(command.name) + ": too many arguments");
        return command.run(arguments);
    }
    return misused("unknown command '" + std::string(words[0]) + "'");
}
} // namespace

int main(int argc, char **argv) {
    std::ios::sync_with_stdio(false);
    const int status = run(Arguments(argv, argc).subspan(argc > 0 ? 1 : 0));
    if (!std::cout.flush())
        return failed(std::string("standard output: ") + strerror(errno));
    return status;
}
