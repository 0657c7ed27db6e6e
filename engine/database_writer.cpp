#include "engine/database_writer.h"

#include "common/file.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace idpfwd {
namespace {

bool writeAll(int descriptor, const std::string &text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR)
            return false;
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return fchmod(descriptor, 0644) == 0 && fsync(descriptor) == 0;
}

} // namespace

bool writeDatabase(const std::filesystem::path &directory, const std::string &name,
                   const std::string &text) {
    std::error_code made;
    std::filesystem::create_directories(directory, made); // opening says why if it failed
    std::string temporary = directory / ("." + name + ".XXXXXX");
    const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file)
        return false;
    if (!writeAll(file.get(), text) || rename(temporary.c_str(), (directory / name).c_str()) != 0) {
        const int error = errno;
        unlink(temporary.c_str());
        errno = error;
        return false;
    }
    const Descriptor folder(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    fsync(folder.get()); // the rename counts as done; a file system that cannot do this is fine
    return true;
}

} // namespace idpfwd
