#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <climits>
#include <cstdlib>
#include <filesystem>

class Housekeeping : public rig::Fixture {};

TEST_F(Housekeeping, AFileIsRemovedOnceItHasReachedTheLimit) {
    setenv("TZ", "XXX-2", 1);
    rig::setTime(1704438489);
    const struct {
        int size, limit;
        bool removed;
    } rows[] = {
        {2 << 20, 2, true}, {(2 << 20) - 1, 2, false}, {3 << 20, 2, true}, {0, 0, true},
        {9, 1, false},      {9, 2048, false},          {9, 4096, false},   {9, INT_MAX, false},
        {9, -1, false},     {9, INT_MIN, false},
    };
    for (const auto &row : rows) {
        rig::writeFile("/tmp/a b.log", "");
        std::filesystem::resize_file("/tmp/a b.log", static_cast<std::uintmax_t>(row.size));
        std::filesystem::remove("/tmp/ra_debug_log.txt");
        check_size("/tmp/a b.log", row.limit);
        EXPECT_EQ(rig::fileExists("/tmp/a b.log"), !row.removed) << row.size << " " << row.limit;
        EXPECT_EQ(rig::fileExists("/tmp/ra_debug_log.txt"), row.removed);
        if (row.removed) {
            EXPECT_EQ(rig::readFile("/tmp/ra_debug_log.txt"),
                      "[2024/1/5 09:08:09]Remove /tmp/a b.log log\n");
        }
    }
    check_size("/tmp/missing", 0);
}

TEST_F(Housekeeping, AnEventIsMarkedByAFileOfOneLine) {
    EXPECT_EQ(check_event_file_exists_or_not("/tmp/event"), 0);
    EXPECT_EQ(create_event_file("/tmp/event"), 0);
    EXPECT_EQ(check_event_file_exists_or_not("/tmp/event"), 1);
    EXPECT_EQ(rig::readFile("/tmp/event"), "1\n");
    EXPECT_EQ(check_event_file_exists_or_not("/tmp"), 1);
    EXPECT_EQ(create_event_file(("/tmp/" + std::string(113, 'e')).c_str()), 0);
    EXPECT_EQ(create_event_file(("/tmp/" + std::string(114, 'e')).c_str()), -1);
}
