// Runs the tests inside the private root and comes back before exit, so that leak checking and
// reports work. Where the machine refuses, the affected tests are skipped with the reason.
#include "support/fixture.h"
#include "support/private_root.h"

#include <gtest/gtest.h>

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();
    rig::setRefusal(rig::enterPrivateRoot());
    const int result = RUN_ALL_TESTS();
    rig::leavePrivateRoot();
    return result;
}
