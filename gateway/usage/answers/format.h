// Answers for people and for spreadsheets, made from the API's JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace usage {

// How a table is to look.
struct Look {
    std::size_t width = 0; // of the terminal in columns, 0 for no limit
    bool human = false;    // units rather than bytes
    bool colour = false;
};

// Of standard output.
Look lookOfOutput();

// With a header line; columns start (with a step), mac, name, category, application, down, up, of
// which those are there that were asked for. What has no row of its own is a last line "others".
std::string usageCsv(const nlohmann::json &usage);

std::string usageTable(const nlohmann::json &usage, const Look &look);
std::string nowTable(const nlohmann::json &now, const Look &look);
std::string quotaTable(const nlohmann::json &quotas, const Look &look);

// Lines about what the totals lack: gaps, losses, an engine that is away. "" when there is nothing.
std::string remarks(const nlohmann::json &state);

// Cells in columns that fit the width: numbers to the right, texts to the left and cut where
// needed.
struct Column {
    std::string title;
    bool number = false;
};
std::string layTable(const std::vector<Column> &columns,
                     const std::vector<std::vector<std::string>> &rows, const Look &look);

} // namespace usage
