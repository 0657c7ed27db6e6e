#include "usage/answers/format.h"
#include "usage/text.h"

#include <algorithm>
#include <cwchar>
#include <sys/ioctl.h>
#include <unistd.h>

namespace usage {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kLeastText = 6; // columns that a text keeps, however narrow the terminal
constexpr const char *kBold = "\x1b[1m";
constexpr const char *kPlain = "\x1b[0m";

// Calls take(bytes, columns) for every character of a UTF-8 text.
template <typename Take>
void eachCharacter(const std::string &text, Take &&take) {
    std::mbstate_t state{};
    for (std::size_t at = 0; at < text.size();) {
        wchar_t wide = 0;
        const std::size_t length = std::mbrtowc(&wide, text.data() + at, text.size() - at, &state);
        const bool good = length != 0 && length <= text.size() - at;
        const std::size_t size = good ? length : 1;
        take(text.substr(at, size),
             static_cast<std::size_t>(std::max(good ? wcwidth(wide) : 1, 0)));
        if (!good)
            state = {};
        at += size;
    }
}

std::size_t columnsOf(const std::string &text) {
    std::size_t sum = 0;
    eachCharacter(text, [&](const std::string &, std::size_t width) { sum += width; });
    return sum;
}

// Exactly so many columns: cut with an ellipsis, or filled with blanks.
std::string fitted(const std::string &text, std::size_t columns, bool right) {
    std::string shown;
    std::size_t used = 0;
    const std::size_t own = columnsOf(text);
    const std::size_t room = own > columns ? columns - 1 : columns;
    bool full = false;
    eachCharacter(text, [&](const std::string &bytes, std::size_t width) {
        full = full || used + width > room;
        if (!full) {
            shown += bytes;
            used += width;
        }
    });
    if (own > columns) {
        shown += "\u2026";
        ++used;
    }
    const std::string fill(columns - std::min(used, columns), ' ');
    return right ? fill + shown : shown + fill;
}

// Takes columns from the widest texts until the table fits.
void shrink(std::vector<std::size_t> &widths, const std::vector<Column> &columns,
            std::size_t width) {
    std::size_t sum = 2 * (widths.size() - 1);
    for (const std::size_t one : widths)
        sum += one;
    while (width != 0 && sum > width) {
        std::size_t widest = widths.size();
        for (std::size_t i = 0; i < widths.size(); ++i) {
            if (!columns[i].number && widths[i] > kLeastText &&
                (widest == widths.size() || widths[i] > widths[widest]))
                widest = i;
        }
        if (widest == widths.size())
            return;
        --widths[widest];
        --sum;
    }
}

std::string sizeText(const Json &bytes, const Look &look) {
    const auto value = bytes.get<std::uint64_t>();
    return look.human ? humanSize(value) : std::to_string(value);
}

std::uint64_t totalOf(const Json &bytes) {
    return Bytes{bytes["down"].get<std::uint64_t>(), bytes["up"].get<std::uint64_t>()}.total();
}

std::vector<std::string> bytesCells(const Json &bytes, const Look &look) {
    return {sizeText(bytes["down"], look), sizeText(bytes["up"], look),
            sizeText(totalOf(bytes), look)};
}

bool isAsked(const Json &usage, const char *name) {
    return std::find(usage["by"].begin(), usage["by"].end(), name) != usage["by"].end();
}

std::string timeUpTo(const Json &time, std::size_t length) {
    std::string text = time.get<std::string>().substr(0, length);
    text[10] = ' ';
    return text;
}

// "2026-11-21 21:18": what a person needs of a time.
std::string shortTime(const Json &time) {
    return timeUpTo(time, 16);
}

// With the seconds: of the ends of a span that may be shorter than a minute.
std::string exactTime(const Json &time) {
    return timeUpTo(time, 19);
}

} // namespace

Look lookOfOutput() {
    Look look;
    winsize size{};
    look.human = isatty(STDOUT_FILENO) != 0;
    const char *noColour = getenv("NO_COLOR");
    look.colour = look.human && (noColour == nullptr || *noColour == '\0');
    if (look.human && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0)
        look.width = size.ws_col;
    return look;
}

std::string layTable(const std::vector<Column> &columns,
                     const std::vector<std::vector<std::string>> &rows, const Look &look) {
    std::vector<std::size_t> widths;
    widths.reserve(columns.size());
    for (const Column &column : columns)
        widths.push_back(columnsOf(column.title));
    for (const auto &row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], columnsOf(row[i]));
    }
    shrink(widths, columns, look.width);
    const auto line = [&](const auto &cellOf) {
        std::string text;
        for (std::size_t i = 0; i < columns.size(); ++i)
            text += (i == 0 ? "" : "  ") + fitted(cellOf(i), widths[i], columns[i].number);
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    };
    const std::string title = line([&](std::size_t i) { return columns[i].title; });
    std::string table = (look.colour ? kBold + title + kPlain : title) + "\n";
    for (const auto &row : rows)
        table += line([&](std::size_t i) { return row[i]; }) + "\n";
    return table;
}

std::string usageTable(const Json &usage, const Look &look) {
    std::vector<Column> columns;
    if (!usage["step"].is_null())
        columns.push_back({"start", false});
    for (const char *name : {"device", "application", "category"}) {
        if (isAsked(usage, name))
            columns.push_back({name, false});
    }
    const std::size_t names = columns.size();
    columns.insert(columns.end(), {{"down", true}, {"up", true}, {"total", true}});
    std::vector<std::vector<std::string>> rows;
    const auto addRow = [&](std::vector<std::string> cells, const Json &bytes) {
        cells.resize(names);
        for (std::string &cell : bytesCells(bytes, look))
            cells.push_back(std::move(cell));
        rows.push_back(std::move(cells));
    };
    for (const Json &row : usage["rows"]) {
        std::vector<std::string> cells;
        for (std::size_t i = 0; i < names; ++i) {
            const Json &value = row[columns[i].title];
            if (columns[i].title == "start")
                cells.push_back(shortTime(value));
            else
                cells.push_back((value.is_object() ? value["name"] : value).get<std::string>());
        }
        addRow(std::move(cells), row);
    }
    if (usage["others"]["count"] != 0)
        addRow({"others (" + usage["others"]["count"].dump() + ")"}, usage["others"]);
    addRow({"total"}, usage["total"]);
    return shortTime(usage["from"]) + " to " + shortTime(usage["to"]) + ", " +
           usage["zone"].get<std::string>() + "\n\n" + layTable(columns, rows, look) +
           remarks(usage["state"]);
}

std::string nowTable(const Json &now, const Look &look) {
    const auto cells = [&](std::string device, std::string application, const Json &rates) {
        const char *unit = look.human ? "/s" : "";
        return std::vector<std::string>{std::move(device), std::move(application),
                                        sizeText(rates["down_per_second"], look) + unit,
                                        sizeText(rates["up_per_second"], look) + unit};
    };
    std::vector<std::vector<std::string>> rows;
    for (const Json &row : now["rows"])
        rows.push_back(cells(row["device"]["name"], row["application"], row));
    rows.push_back(cells("total", "", now["total"]));
    return layTable({{"device", false}, {"application", false}, {"down", true}, {"up", true}}, rows,
                    look);
}

std::string quotaTable(const Json &quotas, const Look &look) {
    std::vector<std::vector<std::string>> rows;
    for (const Json &quota : quotas["quotas"]) {
        const std::string per = quota["per"];
        rows.push_back(
            {quota["number"].dump(),
             quota["device"].is_null() ? "all devices" : quota["device"]["name"].get<std::string>(),
             per == "day" ? per : per + " from day " + quota["starts_on"].dump(),
             sizeText(quota["total"], look), sizeText(quota["used"], look),
             sizeText(quota["estimate"], look), quota["passed"] ? "passed" : ""});
    }
    return layTable({{"number", true},
                     {"device", false},
                     {"per", false},
                     {"limit", true},
                     {"used", true},
                     {"estimate", true},
                     {"", false}},
                    rows, look);
}

std::string remarks(const Json &state) {
    std::string text;
    if (state["last_sample"].is_null())
        text += "There was no sample yet.\n";
    else
        text += "Last sample: " + shortTime(state["last_sample"]) + ".\n";
    if (state["engine"] != "ok")
        text += "The engine does not answer.\n";
    if (state["clock"] != "ok")
        text += "Samples wait until the clock is right.\n";
    if (state["store"] == "full")
        text += "The store can't be written: what is counted is kept in memory.\n";
    if (state["store"] == "set_aside")
        text += "A damaged store was put aside; the history begins anew after it.\n";
    for (const Json &gap : state["gaps"])
        text += "Counted, but nobody knows when: between " + exactTime(gap["from"]) + " and " +
                exactTime(gap["to"]) + ".\n";
    const Json &lost = state["lost"];
    for (const char *name : {"devices", "rows", "packets", "bytes"}) {
        if (!lost[name].is_null() && lost[name] != 0)
            text +=
                "Not counted since the engine started: " + lost[name].dump() + " " + name + ".\n";
    }
    return "\n" + text;
}

} // namespace usage
