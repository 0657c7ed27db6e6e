// A root directory of the tests' own: the code under test uses its real absolute paths inside it.
#pragma once

#include <string>
#include <vector>

namespace rig {

// A program or library for the private root, with the libraries that it is linked to. What stands
// below /lib there outlives resetPrivateRoot.
struct Program {
    std::string source;
    std::string destination;
};

// Builds the directory (a shell, plain file tools, the router's usual folders) and makes it the
// process's root, as root or in a user namespace. Gives the reason when the machine refuses.
std::string enterPrivateRoot(const std::vector<Program> &programs = {});

// Shows the machine's processes below /proc there, in a mount namespace of the test's own; and
// takes them away again, before the root is reset. Gives the reason when the machine refuses.
std::string showProcesses();
void hideProcesses();

// Goes back to the old root and removes the directory. Does nothing when there is none.
void leavePrivateRoot();

// Empties the private root but for its tools, and creates the router's usual folders again.
void resetPrivateRoot();

} // namespace rig
