#pragma once

#include <string>

// Why the tests have no "/dev" of their own; empty when they have one.
extern std::string ownDevRefusal;
