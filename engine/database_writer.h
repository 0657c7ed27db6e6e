// Files that other programs read while they are being replaced.
#pragma once

#include <filesystem>
#include <string>

namespace idpfwd {

// Writes directory/name so that a reader finds the old file or the whole new one, never a part:
// temporary file beside it, rename. The directory is made if it is missing. False, with errno set
// and the old file as it was, when that fails.
bool writeDatabase(const std::filesystem::path &directory, const std::string &name,
                   const std::string &text);

} // namespace idpfwd
