// Looks at a store's file before LMDB does: LMDB follows whatever stands in it, and ends its
// process by a signal where that leads nowhere.
#pragma once

namespace store {

// Whether everything that LMDB can reach from the newest of the file's states lies in the file and
// fits together: 0, MDB_INVALID when it is no store at all, MDB_CORRUPTED, or an error of the
// system. An empty file is a good one. Values are not looked at. Other processes may be writing
// meanwhile.
[[nodiscard]] int check_file(int data);

} // namespace store
