// Guards for what must be released, and the line reader that the file parsers share.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unistd.h>

inline namespace routerutil {

struct FileCloser {
    void operator()(FILE *file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

struct Releaser {
    void operator()(void *memory) const { free(memory); }
};
// Memory of malloc, calloc, strdup or cJSON's printer.
template <typename T>
using Allocated = std::unique_ptr<T, Releaser>;

// Owns one file descriptor; a negative one is none.
class Descriptor {
  public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    [[nodiscard]] int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }

  private:
    int descriptor_;
};

// Reads the next line into a buffer of size bytes (at least 2), as fgets does: a longer line comes
// in pieces of size - 1 characters, each a line of its own. False at the end of the file.
bool read_line(FILE *file, char *line, int size);

// Removes one trailing newline.
void strip_newline(char *line);

} // namespace routerutil
