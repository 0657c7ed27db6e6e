// Passes and a report over replies of the engine that may hold anything. The first two bytes of the
// input are how long the table of users is; the rest is the table of rows. The engine may claim to
// have written more than it did.
#include "fuzz/router/file_input.h"
#include "fuzz/target.h"

#include "dpi/usr_ioctl.h"
#include "support/platform_fake.h"
#include "trafficUsageDetailsD/record_buffer.h"
#include "trafficUsageDetailsD/usage_report.h"
#include "trafficUsageDetailsD/usage_table.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <span>
#include <sys/ioctl.h>
#include <unistd.h>

// The linker sends these here: the large table is one and the same each time, because the system
// takes longer to give it than a pass takes. Behind its end the sanitizer watches as behind any
// other.
extern "C" {
void *__real_calloc(std::size_t count, std::size_t size);
void __real_free(void *memory);
void *__wrap_calloc(std::size_t count, std::size_t size);
void __wrap_free(void *memory);
}

namespace {

uint8_t table[IDPFW_APP_SLOTS * sizeof(devid_app_rate_entry)];
std::size_t written;

using Bytes = std::span<const uint8_t>;
Bytes users;
Bytes rows;

constexpr char kNames[] = "1,Media\n1,1,0,Video\n2,Games\n2,1,0,Chess\xc3";

void reply(forward_ioctl *header, Bytes bytes) {
    const std::size_t length = std::min<std::size_t>(bytes.size(), header->out_len);
    if (length > 0)
        memcpy(header->out, bytes.data(), length);
    *header->out_used_len = static_cast<uint32_t>(bytes.size() % 5 == 4 ? ~0U : length);
}

void require_valid_report() {
    cJSON *document = createTrafficUsageDetailObj();
    FUZZ_REQUIRE(document != nullptr);
    char *text = cJSON_PrintUnformatted(document);
    FUZZ_REQUIRE(text != nullptr);
    cJSON *parsed = cJSON_Parse(text);
    FUZZ_REQUIRE(parsed != nullptr);
    FUZZ_REQUIRE(cJSON_GetArraySize(cJSON_GetObjectItem(parsed, "trafficInfo")) ==
                 cJSON_GetObjectItem(parsed, "numOfTrafficRecrod")->valueint);
    cJSON_Delete(parsed);
    cJSON_free(text);
    cJSON_Delete(document);
}

} // namespace

void *__wrap_calloc(std::size_t count, std::size_t size) {
    if (count * size != sizeof table)
        return __real_calloc(count, size);
    memset(table, 0, written);
    written = rows.size();
    return table;
}

void __wrap_free(void *memory) {
    if (memory != table)
        __real_free(memory);
}

extern "C" int ioctl(int, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    auto *header = va_arg(arguments, forward_ioctl *);
    va_end(arguments);
    reply(header, request == IDPFW_REQUEST(IDPFW_NR_USER) ? users : rows);
    return 0;
}

// The engine's device; nothing else is opened this way.
extern "C" int open(const char *, int, ...) {
    return dup(STDIN_FILENO);
}

extern "C" int system(const char *) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size < 2)
        return 0;
    const Bytes all(data + 2, size - 2);
    users = all.first(std::min<std::size_t>(data[0] | data[1] << 8, all.size()));
    rows = all.subspan(users.size());
    rig::setSetting("tud_max_idle_time", "1");
    const fuzz::FileInput names(reinterpret_cast<const uint8_t *>(kNames), sizeof kNames - 1);
    for (int pass = 0; pass < 2; ++pass) {
        updateTrafficUsageDTable();
        removeUntrackedTrafficUsageDEntry(static_cast<std::uint32_t>(time(nullptr)) + 1);
        updateTrafficBuffer();
    }
    require_valid_report();
    freeTrafficUsageDTable();
    std::fill_n(trafficBuffer, MAX_ENTRY, TrafficInfo{});
    return 0;
}
