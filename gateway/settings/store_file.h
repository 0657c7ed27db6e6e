// The store's folder and files, before LMDB opens them.
#pragma once

namespace store {

// Creates the store's folder, and those above it. 0 or errno.
[[nodiscard]] int make_directory();

// A program that was started without standard input or output must not get the store's files in
// their place, and print into them.
void fill_standard_descriptors();

// Opens a file of the store's folder; no command inherits it. -1 with errno set when it can't.
[[nodiscard]] int open_file(const char *name, int flags);

// LMDB begins a store with one write of two pages. A process that is killed amid it leaves less:
// nothing was ever set in that, and LMDB would refuse it for good.
void drop_torn_beginning();

// As check_file does; a file that does not exist yet is a good one.
[[nodiscard]] int check_data();

} // namespace store
