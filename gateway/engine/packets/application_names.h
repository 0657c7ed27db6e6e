// What the packet sources call the ids in their tables, and what their database files say of it.
#pragma once

#include "engine/database_files.h"
#include "engine/packets/ndpi_classifier.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace idpfwd {

// The names of applications and categories as they come out of the loaders. A loader ends a name
// at a backslash and at the digit 0, so a 0 is spelled with the letter O; no two applications of
// a category, and no two categories, share a name.
class NameTable {
  public:
    static constexpr std::size_t kMaxName = 63;

    NameTable(std::span<const NamedApplication> applications,
              std::span<const NamedCategory> categories);

    // Empty when the database has no such line.
    [[nodiscard]] std::string application(const Application &application) const;
    [[nodiscard]] std::string category(std::uint8_t id) const;

    // All names, and those of the kinds of devices that can be told.
    [[nodiscard]] DatabaseTexts databases() const;

  private:
    std::map<std::uint8_t, std::map<std::uint16_t, std::string>> applications_;
    std::map<std::uint8_t, std::string> categories_;
};

} // namespace idpfwd
