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
    std::size_t limit;
};
constexpr Field kFields[] = {{bd_read_sn, bd_write_sn, 32},
                             {bd_read_sw_feature, bd_write_sw_feature, 4},
                             {bd_read_hw_rev, bd_write_hw_rev, 16},
                             {bd_read_board_id, bd_write_board_id, 63}};

// What flash must hold.
struct Model {
    std::array<std::string, std::size(kFields)> fields;
    std::array<std::optional<std::string>, 4> records;

    [[nodiscard]] std::size_t recordSize() const {
        std::size_t size = 0;
        for (const auto &record : records)
            size += record.value_or("").size();
        return size;
    }
};

std::string randomData(std::mt19937 &random, std::size_t size) {
    static const std::string kNearMagic("\xBD\x0B\x0D\x00\x01\x02\xFF", 7);
    std::string data(size, '\0');
    for (char &byte : data)
        byte = random() % 2 == 0 ? kNearMagic[random() % 7] : static_cast<char>(random());
    static const std::string kMagic = "\xBD\x0B\x0D\xBD";
    for (auto at = data.find(kMagic); at != std::string::npos; at = data.find(kMagic))
        data[at] = 'x';
    return data;
}

// One write and what it makes of the model. True when it is refused.
bool writeField(std::mt19937 &random, Model &model) {
    const std::size_t which = random() % std::size(kFields);
    const Field &field = kFields[which];
    const std::string text(random() % (field.limit + 3), static_cast<char>('a' + random() % 26));
    const bool refused = text.size() > field.limit;
    EXPECT_EQ(field.write(text.c_str()), refused ? -1 : 0);
    if (!refused)
        model.fields[which] = text;
    return refused;
}

bool writeRecord(std::mt19937 &random, Model &model) {
    Model next = model;
    const std::size_t which = random() % 4;
    next.records[which].reset();
    const std::size_t room = kRecordRoom - next.recordSize();
    const std::size_t sizes[] = {0,        random() % 64, random() % 9000, room > 0 ? room - 1 : 0,
                                 room + 1, room,          random() % 65537};
    const std::string data = randomData(random, sizes[random() % std::size(sizes)]);
    next.records[which] = data;
    for (auto &record : next.records)
        record = record.value_or(""); // a missing record becomes an empty one
    const bool refused = data.size() > room;
    EXPECT_EQ(
        bd_write_record(static_cast<int>(which) + 1, data.data(), static_cast<int>(data.size())),
        refused ? -1 : 0);
    if (!refused) {
        model = next;
        if (model.recordSize() == kRecordRoom)
            model.records[3].reset(); // the end marker is in the place that no search sees
    }
    return refused;
}

void expectHolds(const Model &model) {
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
        flash.load(std::string(0x8000, '\0') + randomData(random, 0x8000));
        Model model;
        for (int step = 0; step < 40 && !HasFailure(); ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
            flash.forget();
            const std::string before = flash.contents();
            bool refused = false;
            const std::string message = rig::standardOutput([&] {
                refused =
                    random() % 3 == 0 ? writeField(random, model) : writeRecord(random, model);
            });
            EXPECT_EQ(message.empty(), !refused);
            EXPECT_EQ(flash.calls().empty(), refused);
            EXPECT_TRUE(!refused || flash.contents() == before);
            expectHolds(model);
        }
    }
}
