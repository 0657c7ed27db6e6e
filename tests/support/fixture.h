// The fixture that most tests derive from, and everything it offers: a fresh private root with
// files, fake commands, a settings store, a NAT word, an ioctl, a clock of the test's own.
#pragma once

#include "support/call_stubs.h"
#include "support/commands.h"
#include "support/files.h"
#include "support/platform_fake.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace rig {

// Why there is no private root; empty when there is one.
void setRefusal(const std::string &reason);

// Every test starts with an empty root, no settings, no fake commands, default stubs.
class Fixture : public testing::Test {
  protected:
    void SetUp() override;
};

} // namespace rig
