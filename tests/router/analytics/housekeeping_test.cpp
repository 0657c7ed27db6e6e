#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <tuple>

class Housekeeping : public rig::Fixture {};

TEST_F(Housekeeping, AFileIsRemovedOnceItHasReachedTheLimit) {
    setenv("TZ", "EET-2", 1);
    rig::setTime(1704438489);
    rig::writeFile("/tmp/ra_debug_log.txt", "kept\n");
    const std::tuple<unsigned int, int, bool> rows[] = {{9, -1, false},
                                                        {9, INT_MAX, false},
                                                        {(2 << 20) - 1, 2, false},
                                                        {2 << 20, 2, true},
                                                        {0, 0, true}};
    for (const auto &[size, limit, removed] : rows) {
        rig::writeFile("/tmp/a b.log", "");
        std::filesystem::resize_file("/tmp/a b.log", size);
        check_size("/tmp/a b.log", limit);
        EXPECT_EQ(rig::fileExists("/tmp/a b.log"), !removed) << size << " " << limit;
    }
    EXPECT_EQ(rig::readFile("/tmp/ra_debug_log.txt"),
              "kept\n[2024/1/5 09:08:09]Remove /tmp/a b.log log\n"
              "[2024/1/5 09:08:09]Remove /tmp/a b.log log\n");
    EXPECT_EQ(check_event_file_exists_or_not("/tmp/e f") + create_event_file("/tmp/e f"), 0);
    EXPECT_EQ(check_event_file_exists_or_not("/tmp/e f"), 1);
    const std::string longest = "/tmp/" + std::string(113, 'e'); // of a command's 127 characters
    EXPECT_EQ(create_event_file(longest.c_str()), 0);
    EXPECT_EQ(create_event_file((longest + "e").c_str()), -1);
}
