// Whatever a store refuses, and whenever it goes away, every report of a batch is told of exactly
// once, and as what it is. The first byte is how many answers the store gives; of the others each
// is a report: how many rows it has, and by its highest bit that the store refuses it.
#include "fuzz/target.h"

#include "ingest/report/batch.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

using namespace fleet;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::vector<uint8_t> reports(data + 1, data + size);
    const auto isBad = [&](std::size_t i) { return reports[i] >= 0x80; };
    Batch batch;
    for (const uint8_t report : reports)
        batch.add(std::string(report & 0x7FU, 'r'), report & 0x7FU, "a", {});
    int answers = data[0];
    std::vector<char> told(reports.size(), 0);
    const auto tell = [&](Range range, char what) {
        for (std::size_t i = range.first; i < range.last; ++i) {
            FUZZ_REQUIRE(told.at(i) == 0);
            told[i] = what;
        }
    };
    const auto store = [&](Range range) {
        FUZZ_REQUIRE(range.size() > 0 && range.last <= reports.size());
        FUZZ_REQUIRE(batch.rows(range).size() == batch.rowCount(range));
        FUZZ_REQUIRE(batch.arrivals(range).size() == range.size());
        if (answers-- <= 0)
            return Verdict::kAway;
        for (std::size_t i = range.first; i < range.last; ++i)
            if (isBad(i))
                return Verdict::kRefused;
        return Verdict::kStored;
    };
    settle(batch, {.store = store,
                   .stored = [&](Range range) { tell(range, 's'); },
                   .refused =
                       [&](std::size_t i) {
                           tell({i, i + 1}, 'r');
                       },
                   .left = [&](Range range) { tell(range, 'l'); }});
    for (std::size_t i = 0; i < reports.size(); ++i) {
        FUZZ_REQUIRE(told[i] != 0);
        FUZZ_REQUIRE(told[i] != 's' || !isBad(i));
        FUZZ_REQUIRE(told[i] != 'r' || isBad(i));
    }
    return 0;
}
