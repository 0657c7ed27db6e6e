#include "support/engine_fake.h"

#include "support/fixture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace rig {
namespace {

template <typename Record>
int answer(const std::vector<Record> &records, unsigned int excess, forward_ioctl *header) {
    const std::size_t bytes =
        std::min<std::size_t>(records.size() * sizeof(Record), header->out_len);
    if (bytes > 0)
        memcpy(header->out, records.data(), bytes);
    *header->out_used_len = static_cast<std::uint32_t>(bytes) + excess;
    return 0;
}

} // namespace

void FakeEngine::plugIn() {
    writeFile("/dev/idpfw", "");
    onIoctl([this](int, unsigned long request, void *argument) {
        auto *header = static_cast<forward_ioctl *>(argument);
        if (request == IDPFW_REQUEST(IDPFW_NR_USER) && !refusesUsers)
            return answer(users, excessBytes, header);
        if (request == IDPFW_REQUEST(IDPFW_NR_APP) && !refusesRows)
            return answer(rows, excessBytes, header);
        errno = EIO;
        return -1;
    });
}

void FakeEngine::addUser(int uid, int vendorId, int typeId, int devId) {
    devid_user_entry user{};
    user.uid = static_cast<std::uint8_t>(uid);
    user.mac[0] = 2;
    user.mac[5] = static_cast<std::uint8_t>(uid);
    user.os.detail.vendor_id = static_cast<std::uint16_t>(vendorId);
    user.os.detail.type_id = static_cast<std::uint16_t>(typeId);
    user.os.detail.dev_id = static_cast<std::uint16_t>(devId);
    user.available = 1;
    users.push_back(user);
}

devid_app_rate_entry &FakeEngine::addRow(int uid, int category, int application, std::uint64_t down,
                                         std::uint64_t up) {
    devid_app_rate_entry row{};
    row.uid = static_cast<std::uint8_t>(uid);
    row.cat_id = static_cast<std::uint8_t>(category);
    row.app_id = static_cast<std::uint16_t>(application);
    row.last_elapsed_ts = 1000;
    row.down_accl_byte = down;
    row.up_accl_byte = up;
    row.available = 1;
    rows.push_back(row);
    return rows.back();
}

void writeNames(const std::string &categories, const std::string &applications) {
    writeFile("/tmp/trend/bwdpi.cat.db", categories);
    writeFile("/tmp/trend/bwdpi.app.db", applications);
}

} // namespace rig
