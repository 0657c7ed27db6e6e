// The router for the benchmark: an engine with full tables and a settings store, both in memory.
#pragma once

#include <cstddef>

// Fills the engine's tables: 63 users, rows of 512 applications in 16 categories spread over them,
// and writes the databases that name them.
void fillEngine(std::size_t rows);

// Makes every row grow.
void growRows();

// Turns the order of the rows round.
void reverseRows();

// How often a setting was read since the last call.
std::size_t settingReads();
