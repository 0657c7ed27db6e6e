// A file that the engine made and takes away again, unless someone has replaced it meanwhile.
#pragma once

#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace idpfwd {

class OwnedFile {
  public:
    OwnedFile() = default;
    OwnedFile(const OwnedFile &) = delete;
    OwnedFile &operator=(const OwnedFile &) = delete;
    ~OwnedFile() {
        struct stat now {};
        if (made_ && lstat(path_.c_str(), &now) == 0 && now.st_dev == made_->st_dev &&
            now.st_ino == made_->st_ino)
            unlink(path_.c_str());
    }

    // The file of this path, which exists since just now.
    void own(const std::string &path) {
        struct stat made {};
        if (lstat(path.c_str(), &made) != 0)
            return;
        path_ = path;
        made_ = made;
    }

  private:
    std::string path_;
    std::optional<struct stat> made_;
};

} // namespace idpfwd
