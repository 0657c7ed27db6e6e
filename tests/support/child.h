// A program that a test starts.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace rig {

// Waits for the end of a process: its exit status, or minus the signal that ended it; -1 when there
// is none.
int exitStatus(pid_t process);

// Killed, if it is still there, with the object.
class Child {
  public:
    // Prints into the file OUTPUT, and what it says of errors into OUTPUT.err.
    Child(std::vector<std::string> words, const std::string &output,
          const std::vector<std::pair<const char *, std::string>> &environment = {});
    Child(Child &&other) noexcept : process_(std::exchange(other.process_, -1)) {}
    Child &operator=(Child &&) = delete;
    ~Child();

    // Does nothing to one that was waited for.
    void signal(int number) const;
    int wait() { return exitStatus(std::exchange(process_, -1)); }

  private:
    pid_t process_;
};

// Until the condition holds; false after a minute, which is long on any machine.
bool eventually(const std::function<bool()> &condition);

} // namespace rig
