// The store's tables and questions, which are built in from fleet/sql, and what is asked of them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fleet {

// The text of fleet/sql/tables.sql and fleet/sql/questions.sql.
extern const std::string_view kTables;
extern const std::string_view kQuestions;

// The statements of such a text, without comments; one ends at a semicolon that ends its line.
[[nodiscard]] std::vector<std::string> statementsOf(std::string_view text);

// Whether it is a day, "2026-11-21".
[[nodiscard]] bool isDay(std::string_view text);

// Makes a day's rows of `daily` from `reports`, in one statement, with this version.
[[nodiscard]] std::string rollupStatement(std::string_view day, std::uint64_t version);

// Asks for the days that got rows since their sums were made.
[[nodiscard]] std::string dueDaysStatement();

} // namespace fleet
