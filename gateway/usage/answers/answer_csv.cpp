#include "usage/answers/format.h"

#include <algorithm>

namespace usage {
namespace {

using Json = nlohmann::json;

std::string cell(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    return quoted + "\"";
}

std::string line(const std::vector<std::string> &cells) {
    std::string text;
    for (const std::string &one : cells)
        text += (text.empty() ? "" : ",") + cell(one);
    return text + "\n";
}

} // namespace

std::string usageCsv(const Json &usage) {
    const auto by = [&](const char *name) {
        return std::find(usage["by"].begin(), usage["by"].end(), name) != usage["by"].end();
    };
    std::vector<std::string> columns;
    if (!usage["step"].is_null())
        columns.emplace_back("start");
    if (by("device"))
        columns.insert(columns.end(), {"mac", "name"});
    if (by("category") || by("application"))
        columns.emplace_back("category");
    if (by("application"))
        columns.emplace_back("application");
    const auto value = [](const Json &row, const std::string &column) -> std::string {
        const Json &holder = column == "mac" || column == "name" ? row["device"] : row;
        return holder[column].get<std::string>();
    };
    const auto withBytes = [](std::vector<std::string> cells, const Json &bytes) {
        cells.push_back(bytes["down"].dump());
        cells.push_back(bytes["up"].dump());
        return line(cells);
    };
    std::vector<std::string> header = columns;
    header.insert(header.end(), {"down", "up"});
    std::string text = line(header);
    for (const Json &row : usage["rows"]) {
        std::vector<std::string> cells;
        cells.reserve(columns.size() + 2);
        for (const std::string &column : columns)
            cells.push_back(value(row, column));
        text += withBytes(cells, row);
    }
    if (usage["others"]["count"] != 0) {
        const auto named =
            std::find(columns.begin(), columns.end(), by("device") ? "name" : columns.back());
        std::vector<std::string> cells(columns.size());
        cells[static_cast<std::size_t>(named - columns.begin())] = "others";
        text += withBytes(cells, usage["others"]);
    }
    return text;
}

} // namespace usage
