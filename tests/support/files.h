// Files inside the private root, and what a piece of code prints.
#pragma once

#include <functional>
#include <string>

namespace rig {

// Creates the file (and its folders) with exactly this content.
void writeFile(const std::string &path, const std::string &content);

// The whole content; fails the test when the file cannot be read.
std::string readFile(const std::string &path);

bool fileExists(const std::string &path);

// What the body, and the commands that it runs, print.
std::string standardOutput(const std::function<void()> &body);
std::string standardError(const std::function<void()> &body);

} // namespace rig
