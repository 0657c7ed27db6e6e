// Fake commands on the private root's PATH that record how they were called.
#pragma once

#include <string>
#include <vector>

namespace rig {

// Puts a fake program on the PATH, or at the path that name is: it records its command line, then
// runs the shell text of body. A plain file tool may be faked too, until the next test; busybox
// still has the real one (fakeCommand("cp", "busybox cp \"$@\"")).
void fakeCommand(const std::string &name, const std::string &body = "");

// The recorded command lines in order, each as its words joined by single blanks. The words of one
// call are told apart where a test needs it by recordedWords.
std::vector<std::string> recordedCommands();

// The words of the n-th recorded call.
std::vector<std::string> recordedWords(std::size_t n);

// Forgets what was recorded so far.
void forgetCommands();

} // namespace rig
