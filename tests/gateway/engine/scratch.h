// A folder of one test's own.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

class Scratch {
  public:
    Scratch() {
        std::string made = std::filesystem::temp_directory_path() / "engine-XXXXXX";
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
