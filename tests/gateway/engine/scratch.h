// A folder of one test's own.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

class Scratch {
  public:
    // In memory where there is such a file system: some tests write for a year.
    Scratch() {
        const std::filesystem::path memory = "/dev/shm";
        std::string made =
            (access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path()) /
            "test-XXXXXX";
        if (mkdtemp(made.data()) == nullptr)
            throw std::runtime_error("mkdtemp failed");
        path_ = made;
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::filesystem::path &path() const { return path_; }

    [[nodiscard]] std::filesystem::path operator/(const std::string &name) const {
        return path_ / name;
    }

    [[nodiscard]] std::string read(const std::string &name) const {
        std::ifstream in(path_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::string write(const std::string &name, const std::string &text) const {
        std::ofstream(path_ / name, std::ios::binary) << text;
        return path_ / name;
    }

    [[nodiscard]] std::vector<std::string> names(const std::string &folder = "") const {
        std::vector<std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator(path_ / folder))
            found.push_back(entry.path().filename());
        std::sort(found.begin(), found.end());
        return found;
    }

  private:
    std::filesystem::path path_;
};
