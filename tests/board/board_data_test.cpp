// Everything that the block holds, through any sequence of writes.
#include "board/bd_util.h"
#include "board/flash_sim.h"
#include "support/fixture.h"

#include <array>
#include <random>

namespace {

constexpr std::size_t kRecordRoom = 0x8000 - 5 * 8; // for the data of all records together

class BoardData : public rig::Fixture {};

struct Field {
    int (*read)(char *out, int size);
    int (*write)(const char *text);
    std::size_t offset, width, limit;
    const char *complaint;
};
constexpr Field kFields[] = {
    {bd_read_board_id, bd_write_board_id, 0, 64, 63, "Board ID too long. Max 64 chars!\n"},
    {bd_read_sn, bd_write_sn, 76, 32, 32, "serial number too long. Max 32 chars!\n"},
    {bd_read_hw_rev, bd_write_hw_rev, 120, 16, 16, "HW rev too long. Max 16 chars!\n"},
    {bd_read_sw_feature, bd_write_sw_feature, 136, 4, 4, "SW feature too long. Max 4 chars!\n"}};

// What flash must hold.
struct Model {
    std::string head = std::string(0x8000, 'o'); // in front of the records
    std::array<std::string, std::size(kFields)> fields;
    std::array<std::optional<std::string>, 4> records;
};

// Full of pieces of the magic, never all of it.
std::string randomData(std::mt19937 &random, std::size_t size) {
    std::string data(size, '\0');
    for (char &byte : data)
        byte = "\xBD\x0B\x0D\x00\x01\x02\xFF"[random() % 7];
    for (auto at = data.find("\xBD\x0B\x0D\xBD"); at != std::string::npos;
         at = data.find("\xBD\x0B\x0D\xBD", at))
        data[at] = 'x';
    return data;
}

// One write and what it makes of the model. What is printed when it is refused.
std::string writeField(std::mt19937 &random, Model &model) {
    const std::size_t which = random() % std::size(kFields);
    const Field &field = kFields[which];
    const std::size_t sizes[] = {random() % field.limit, field.limit, field.limit + 1};
    const std::string text(sizes[random() % 3], static_cast<char>('a' + random() % 26));
    const bool refused = text.size() > field.limit;
    EXPECT_EQ(field.write(text.c_str()), refused ? -1 : 0);
    if (refused)
        return field.complaint;
    model.fields[which] = text;
    model.head.replace(field.offset, field.width,
                       text + std::string(field.width - text.size(), '\0'));
    return "";
}

std::string writeRecord(std::mt19937 &random, Model &model) {
    auto records = model.records;
    const std::size_t which = random() % 4;
    records[which].reset();
    std::size_t room = kRecordRoom;
    for (auto &record : records) {
        record = record.value_or(""); // a missing record becomes an empty one
        room -= record->size();
    }
    const std::size_t sizes[] = {0,        random() % 9000, room - 1,        room,
                                 room + 1, room + 12,       random() % 65538};
    const std::string data = randomData(random, sizes[random() % std::size(sizes)] % 65538);
    const bool refused = data.size() > room;
    EXPECT_EQ(
        bd_write_record(static_cast<int>(which) + 1, data.data(), static_cast<int>(data.size())),
        refused ? -1 : 0);
    if (refused)
        return "No room to add last magic";
    records[which] = data;
    if (data.size() == room)
        records[3].reset(); // the end marker is in the place that no search sees
    model.records = records;
    return "";
}

void expectHolds(const rig::FlashSim &flash, const Model &model) {
    EXPECT_TRUE(flash.contents().starts_with(model.head));
    char text[80];
    for (std::size_t i = 0; i < std::size(kFields); ++i) {
        EXPECT_EQ(kFields[i].read(text, sizeof text - 1), 0);
        EXPECT_EQ(text, model.fields[i]);
    }
    std::string data(BOARD_DATA_SIZE, '\0');
    for (int id = 1; id <= 4; ++id) {
        uint32_t length = 0;
        const int result = bd_read_record(id, data.data(), &length, BOARD_DATA_SIZE);
        const auto &record = model.records[static_cast<std::size_t>(id) - 1];
        ASSERT_EQ(result, record ? 0 : -1) << id;
        EXPECT_TRUE(!record || data.substr(0, length) == *record) << id;
    }
}

} // namespace

TEST_F(BoardData, AnySequenceOfWritesReadsBackAndARefusalTouchesNothing) {
    for (unsigned int seed = 1; seed <= 6; ++seed) {
        std::mt19937 random(seed);
        rig::FlashSim flash(seed % 2 == 0 ? 0x10000 : 0x20000);
        flash.load(Model().head + randomData(random, 0x8000));
        Model model;
        for (const Field &field : kFields) {
            ASSERT_EQ(field.write(""), 0);
            model.head.replace(field.offset, field.width, field.width, '\0');
        }
        for (int step = 0; step < 40 && !HasFailure(); ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
            flash.forget();
            std::string complaint;
            const std::string printed = rig::standardOutput([&] {
                complaint =
                    random() % 3 == 0 ? writeField(random, model) : writeRecord(random, model);
            });
            EXPECT_EQ(printed, complaint);
            EXPECT_EQ(flash.calls().empty(), !complaint.empty());
            expectHolds(flash, model);
        }
    }
}
