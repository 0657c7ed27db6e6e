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
    const std::tuple<unsigned int, int, bool> rows[] = {
        {2 << 20, 2, true}, {(2 << 20) - 1, 2, false}, {0, 0, true},       {9, 4096, false},
        {9, -1, false},     {9, INT_MAX, false},       {9, INT_MIN, false}};
    for (const auto &[size, limit, removed] : rows) {
        rig::writeFile("/tmp/a b.log", "");
        rig::writeFile("/tmp/ra_debug_log.txt", "");
        std::filesystem::resize_file("/tmp/a b.log", size);
        check_size("/tmp/a b.log", limit);
        EXPECT_EQ(rig::fileExists("/tmp/a b.log"), !removed) << size << " " << limit;
        EXPECT_EQ(rig::readFile("/tmp/ra_debug_log.txt"),
                  removed ? "[2024/1/5 09:08:09]Remove /tmp/a b.log log\n" : "");
    }
    check_size("/tmp/missing", 0);
}

TEST_F(Housekeeping, AnEventIsMarkedByAFileOfOneLine) {
    EXPECT_EQ(check_event_file_exists_or_not("/tmp"), 1);
    EXPECT_EQ(check_event_file_exists_or_not("/tmp/event"), 0);
    EXPECT_EQ(create_event_file("/tmp/event"), 0);
    EXPECT_EQ(rig::readFile("/tmp/event"), "1\n");
    for (const auto &[length, result] : {std::pair{113u, 0}, {114u, -1}})
        EXPECT_EQ(create_event_file(("/tmp/" + std::string(length, 'e')).c_str()), result);
}
