// A kernel and a libfuse of the test's own behind the CUSE device: ioctls of this process, round by
// round, on machines that have no /dev/cuse.
#pragma once

#include <cstdint>
#include <functional>

namespace idpfwd {

struct FakeCuse {
    // Like ioctl by a caller whose header is at this address: 0, or its errno. A narrow caller is
    // one with 32-bit pointers on a 64-bit kernel. The device serves one round at each turn.
    static int ioctl(std::uint32_t number, void *header, bool narrow,
                     const std::function<void()> &turn);

    // The kernel takes the device away.
    static void hangUp();
};

} // namespace idpfwd
