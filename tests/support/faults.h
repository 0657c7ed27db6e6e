// Calls of the code under test into the system, made to fail one by one. The code under test is
// linked so that they come here first; the tests' own calls are only counted while a Fault lives.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace rig {

// One kind of call, and how it fails. What a failed call was to do is not done, but for a close,
// which tells of an earlier failure; a stream that failed says so until it is closed, and at its
// end. A program that can't be executed ends with 127, as the shell's status tells.
enum class Call { kAllocate, kOpen, kRead, kWrite, kClose, kIoctl, kFork, kExecute };

constexpr Call kEveryCall[] = {Call::kAllocate, Call::kOpen,  Call::kRead, Call::kWrite,
                               Call::kClose,    Call::kIoctl, Call::kFork, Call::kExecute};

std::string nameOf(Call call);

// While it lives, the n-th call (1 is the first) of this kind fails, or all from there on. One at a
// time.
class Fault {
  public:
    Fault(Call call, std::size_t n, bool forGood = false);
    Fault(const Fault &) = delete;
    Fault &operator=(const Fault &) = delete;
    ~Fault();

    [[nodiscard]] bool hasHappened() const;
};

// What the process holds; where the system's allocator counts it (no sanitizer), to within the
// tolerance.
std::size_t openDescriptors();
double bytesInUse();
extern const double bytesTolerance;

// Runs the body once for every call that it makes of every kind, with that one failing, and again
// with all from there on: prepare() before each, check(kind) after it, both without the fault.
// Fails the test when a descriptor or a child is left behind.
void failEveryCall(const std::function<void()> &prepare, const std::function<void()> &body,
                   const std::function<void(Call)> &check);

} // namespace rig
