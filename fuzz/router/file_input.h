// Files as fuzz input: nothing on the machine is read or written.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzz {

// While it lives, every file that is opened for reading holds these bytes, whatever its path; no
// file can be opened for writing.
class FileInput {
  public:
    FileInput(const uint8_t *data, std::size_t size);
    FileInput(const FileInput &) = delete;
    FileInput &operator=(const FileInput &) = delete;
    ~FileInput();
};

} // namespace fuzz
