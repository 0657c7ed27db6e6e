// A program that a test starts.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace rig {

// Killed, if it is still there, with the object.
class Child {
  public:
    // Prints into the file OUTPUT, and what it says of errors into OUTPUT.err.
    Child(std::vector<std::string> words, const std::string &output,
          const std::vector<std::pair<const char *, std::string>> &environment = {});
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child();

    void signal(int number) const;
    // Waits for its end: its exit status, or minus the signal that ended it.
    int wait();

  private:
    pid_t process_;
};

// Until the condition holds; false after a minute, which is long on any machine.
bool eventually(const std::function<bool()> &condition);

} // namespace rig
