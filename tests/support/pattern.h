#pragma once

#include <string>

namespace rig {

// The text with every match of a regular expression replaced. Here once: whatever includes <regex>
// takes seconds more to compile.
std::string replaceEach(const std::string &text, const char *pattern, const char *replacement = "");

} // namespace rig
