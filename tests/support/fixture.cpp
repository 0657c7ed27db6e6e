#include "support/fixture.h"

#include "support/private_root.h"

namespace rig {
namespace {
std::string refusal;
}

void setRefusal(const std::string &reason) {
    refusal = reason;
}

void Fixture::SetUp() {
    if (!refusal.empty())
        GTEST_SKIP() << "no private root on this machine: " << refusal;
    resetPrivateRoot();
    resetPlatform();
    resetCalls();
}

} // namespace rig
