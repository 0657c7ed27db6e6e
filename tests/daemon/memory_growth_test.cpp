// The daemon runs for months: what its passes and reports take, they give back.
#include "support/engine_fake.h"
#include "support/fixture.h"
#include "trafficUsageDetailsD/record_buffer.h"
#include "trafficUsageDetailsD/usage_report.h"

#include <malloc.h>

// There in a build with sanitizers.
extern "C" [[gnu::weak]] std::size_t __sanitizer_get_current_allocated_bytes();

namespace {

const bool exact = __sanitizer_get_current_allocated_bytes != nullptr;
// Without sanitizers the system's allocator counts what it keeps at hand as in use.
const double tolerance = exact ? 0 : 64 * 1024;

std::size_t bytesInUse() {
    return exact ? __sanitizer_get_current_allocated_bytes() : mallinfo2().uordblks;
}

constexpr int kCycle = 40; // passes after which the scenario begins again

// Devices and applications come, move bytes for a while, and go: each pair at its own times.
void playScene(rig::FakeEngine &engine, int pass) {
    const int scene = pass % kCycle;
    engine.users.clear();
    engine.rows.clear();
    for (int uid = 1; uid <= 6; ++uid) {
        if ((scene + 7 * uid) % kCycle < 25)
            engine.addUser(uid, uid, uid);
        for (int application = 1; application <= 5; ++application) {
            const int age = (scene + 3 * uid + 5 * application) % kCycle;
            if (age < 20)
                engine.addRow(uid, application % 2, application, 100 * std::min(age, 8), age);
        }
    }
}

} // namespace

class MemoryGrowth : public rig::Fixture {
  protected:
    void TearDown() override { freeTrafficUsageDTable(); }
};

TEST_F(MemoryGrowth, TwoThousandPassesEndWithTheMemoryInUseOfTwoHundred) {
    rig::FakeEngine engine;
    engine.plugIn();
    rig::writeNames("1,Media\n", "1,1,0,Video\n1,3,0,Music\n1,5,0,Chess\n");
    rig::writeFile("/tmp/trend/bwdpi.devdb.db",
                   "1,0,0,1,0,0,\"v\",\"o\",\"c\",\"Game console\",\"d\",\"f\"\n");
    rig::fakeCommand("killall");
    rig::setSetting("tud_max_idle_time", "2");
    std::size_t after200 = 0;
    std::size_t after2000 = 0;
    rig::standardOutput([&] {
        for (int pass = 1; pass <= 2000; ++pass) {
            rig::setTime(1000 + 10 * pass);
            playScene(engine, pass);
            updateTrafficUsageDTable();
            updateTrafficBuffer();
            if (pass % 500 == 0) {
                dumpTrafficUsageDTable();
                generateTudJson();
            }
            if (pass == 200)
                after200 = bytesInUse();
        }
        after2000 = bytesInUse();
    });
    EXPECT_NEAR(static_cast<double>(after2000), static_cast<double>(after200), tolerance);
    EXPECT_GE(rig::recordedCommands().size(), 4u); // full buffers were reported as well
}
