// Everything that the block holds, through any sequence of writes.
#include "board/bd_util.h"
#include "router/board/flash_sim.h"
#include "support/fixture.h"

#include <array>
#include <random>

using BoardData = rig::Fixture;

namespace {

constexpr std::size_t kArea = 0x8000;                        // where the records begin
constexpr std::size_t kRecordRoom = 0x10000 - kArea - 5 * 8; // for the data of all together

struct Field {
    int (*read)(char *out, int size);
    int (*write)(const char *text);
    std::size_t offset, width, limit;
};
constexpr Field kFields[] = {{bd_read_board_id, bd_write_board_id, 0, 64, 63},
                             {bd_read_sn, bd_write_sn, 76, 32, 32},
                             {bd_read_hw_rev, bd_write_hw_rev, 120, 16, 16},
                             {bd_read_sw_feature, bd_write_sw_feature, 136, 4, 4}};

struct Model {
    std::string block;                                 // what flash must hold
    std::array<std::optional<std::string>, 4> records; // what is found in it
};

std::string header(std::size_t id, std::size_t length) {
    return std::string("\xBD\x0B\x0D\xBD", 4) + static_cast<char>(id) + '\0' +
           static_cast<char>(length & 0xFF) + static_cast<char>(length >> 8);
}

// Full of pieces of the magic, never all of it.
std::string randomData(std::mt19937 &random, std::size_t size) {
    std::string data(size, '\0');
    for (char &byte : data)
        byte = "\xBD\x0B\x00\x01\x02\xFF"[random() % 6];
    return data;
}

// One write and what it makes of the model. False when it is to be refused.
bool writeField(std::mt19937 &random, Model &model) {
    const Field &field = kFields[random() % std::size(kFields)];
    const std::size_t sizes[] = {random() % field.limit, field.limit, field.limit + 1};
    std::string text(sizes[random() % 3], static_cast<char>('a' + random() % 26));
    const bool fits = text.size() <= field.limit;
    EXPECT_EQ(field.write(text.c_str()), fits ? 0 : -1);
    text.resize(field.width);
    if (fits)
        model.block.replace(field.offset, field.width, text);
    return fits;
}

bool writeRecord(std::mt19937 &random, Model &model) {
    const std::size_t which = random() % 4;
    std::size_t room = kRecordRoom;
    for (std::size_t i = 0; i < 4; ++i)
        room -= i != which && model.records[i] ? model.records[i]->size() : 0;
    const std::size_t sizes[] = {0, random() % 9000, room, room + 1, room + 12, random() % 65538};
    const std::string data = randomData(random, sizes[random() % std::size(sizes)]);
    const bool fits = data.size() <= room;
    EXPECT_EQ(
        bd_write_record(static_cast<int>(which) + 1, data.data(), static_cast<int>(data.size())),
        fits ? 0 : -1);
    if (!fits)
        return false;
    std::string chain;
    for (std::size_t i = 0; i < 4; ++i) {
        auto &record = model.records[i];
        record = i == which ? data : record.value_or(""); // a missing record becomes an empty one
        chain += header(i + 1, record->size()) + *record;
    }
    chain += header(0, 0);
    model.block.replace(kArea, chain.size(), chain);
    if (data.size() == room)
        model.records[3].reset(); // the end marker is in the place that no search sees
    return true;
}

void expectHolds(const rig::FlashSim &flash, const Model &model) {
    EXPECT_TRUE(flash.contents().starts_with(model.block));
    char text[80];
    for (const Field &field : kFields) {
        EXPECT_EQ(field.read(text, sizeof text - 1), 0);
        EXPECT_STREQ(text, model.block.substr(field.offset, field.width).c_str());
    }
    for (int id = 1; id <= 4; ++id) {
        const auto &record = model.records[static_cast<std::size_t>(id) - 1];
        std::string data(record.value_or("").size(), '\0');
        const int size = static_cast<int>(data.size());
        uint32_t length = 0;
        EXPECT_EQ(bd_read_record(id, data.data(), &length, size - 1), -1) << id;
        EXPECT_EQ(bd_read_record(id, data.data(), &length, size), record ? 0 : -1) << id;
        EXPECT_TRUE(data == record.value_or("")) << id;
    }
}

} // namespace

TEST_F(BoardData, AnySequenceOfWritesReadsBackAndARefusalTouchesNothing) {
    for (unsigned int seed = 1; seed <= 6; ++seed) {
        std::mt19937 random(seed);
        Model model{std::string(kArea, '\0') + randomData(random, kArea), {}};
        rig::FlashSim flash(seed % 2 == 0 ? 0x10000 : 0x20000, rig::kFlashSize, model.block);
        for (int step = 0; step < 40 && !HasFailure(); ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
            flash.calls.clear();
            bool fits = false;
            const std::string printed = rig::standardOutput([&] {
                fits = random() % 3 == 0 ? writeField(random, model) : writeRecord(random, model);
            });
            EXPECT_EQ(printed.empty(), fits);
            EXPECT_EQ(flash.calls.empty(), !fits);
            rig::standardOutput([&] { expectHolds(flash, model); });
        }
    }
}
