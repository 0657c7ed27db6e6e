#include "dpi/usr_ioctl.h"

#include "common/file.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace {

// The layouts that the kernel module and its callers share.
#define ASSERT_OFFSET(type, field, offset) static_assert(offsetof(type, field) == (offset))

// Pointers of 64 bits only occur on a workstation, where the engine's stand-in knows their layout.
constexpr std::size_t by_pointer_width(std::size_t with_32_bits, std::size_t with_64_bits) {
    return sizeof(void *) == 4 ? with_32_bits : with_64_bits;
}
static_assert(sizeof(forward_ioctl) == by_pointer_width(44, 64));
ASSERT_OFFSET(forward_ioctl, magic, 0);
ASSERT_OFFSET(forward_ioctl, nr, 4);
ASSERT_OFFSET(forward_ioctl, op, 5);
ASSERT_OFFSET(forward_ioctl, rsv, 6);
ASSERT_OFFSET(forward_ioctl, in_type, 7);
ASSERT_OFFSET(forward_ioctl, in_raw, 8);
ASSERT_OFFSET(forward_ioctl, in_u32, 8);
ASSERT_OFFSET(forward_ioctl, in_len, by_pointer_width(12, 16));
ASSERT_OFFSET(forward_ioctl, out, by_pointer_width(16, 24));
ASSERT_OFFSET(forward_ioctl, out_used_len, by_pointer_width(20, 32));
ASSERT_OFFSET(forward_ioctl, out_len, by_pointer_width(24, 40));
ASSERT_OFFSET(forward_ioctl, rsv2, by_pointer_width(28, 44));

static_assert(sizeof(devid_os_detail) == 12);
ASSERT_OFFSET(devid_os_detail, vendor_id, 0);
ASSERT_OFFSET(devid_os_detail, os_id, 2);
ASSERT_OFFSET(devid_os_detail, class_id, 4);
ASSERT_OFFSET(devid_os_detail, type_id, 6);
ASSERT_OFFSET(devid_os_detail, dev_id, 8);
ASSERT_OFFSET(devid_os_detail, family_id, 10);

static_assert(sizeof(devid_os) == 19);
ASSERT_OFFSET(devid_os, detail, 0);
ASSERT_OFFSET(devid_os, de_prio, 12);
ASSERT_OFFSET(devid_os, update, 14);
ASSERT_OFFSET(devid_os, update_time, 15);

static_assert(sizeof(devid_user_entry) == 90);
ASSERT_OFFSET(devid_user_entry, uid, 0);
ASSERT_OFFSET(devid_user_entry, mac, 1);
ASSERT_OFFSET(devid_user_entry, ipv4, 7);
ASSERT_OFFSET(devid_user_entry, ipv6, 11);
ASSERT_OFFSET(devid_user_entry, host_name, 27);
ASSERT_OFFSET(devid_user_entry, os, 59);
ASSERT_OFFSET(devid_user_entry, ts, 78);
ASSERT_OFFSET(devid_user_entry, ts_create, 82);
ASSERT_OFFSET(devid_user_entry, available, 86);

static_assert(sizeof(devid_app_rate_entry) == 36);
ASSERT_OFFSET(devid_app_rate_entry, uid, 0);
ASSERT_OFFSET(devid_app_rate_entry, cat_id, 1);
ASSERT_OFFSET(devid_app_rate_entry, app_id, 2);
ASSERT_OFFSET(devid_app_rate_entry, last_elapsed_ts, 4);
ASSERT_OFFSET(devid_app_rate_entry, down_accl_byte, 8);
ASSERT_OFFSET(devid_app_rate_entry, down_accl_pkt, 16);
ASSERT_OFFSET(devid_app_rate_entry, up_accl_byte, 20);
ASSERT_OFFSET(devid_app_rate_entry, up_accl_pkt, 28);
ASSERT_OFFSET(devid_app_rate_entry, available, 32);

static_assert(sizeof(devid_app_bw_entry) == 24);
ASSERT_OFFSET(devid_app_bw_entry, uid, 0);
ASSERT_OFFSET(devid_app_bw_entry, cat_id, 1);
ASSERT_OFFSET(devid_app_bw_entry, app_id, 2);
ASSERT_OFFSET(devid_app_bw_entry, down_recent, 4);
ASSERT_OFFSET(devid_app_bw_entry, up_recent, 12);
ASSERT_OFFSET(devid_app_bw_entry, available, 20);

static_assert(sizeof(devid_app_patrol_list_entry) == 19);
ASSERT_OFFSET(devid_app_patrol_list_entry, uid, 0);
ASSERT_OFFSET(devid_app_patrol_list_entry, mac, 1);
ASSERT_OFFSET(devid_app_patrol_list_entry, cat_id, 7);
ASSERT_OFFSET(devid_app_patrol_list_entry, app_id, 8);
ASSERT_OFFSET(devid_app_patrol_list_entry, time, 10);
ASSERT_OFFSET(devid_app_patrol_list_entry, flag, 14);
ASSERT_OFFSET(devid_app_patrol_list_entry, available, 15);

#undef ASSERT_OFFSET

// What tells the engine's commands apart.
struct Command {
    uint8_t nr;
    uint8_t op;
};

constexpr Command kReadUsers{IDPFW_NR_USER, 1};

constexpr Command kReadAppRates{IDPFW_NR_APP, 1};
constexpr Command kSetAppPatrol{IDPFW_NR_APP, 2};
constexpr Command kReadAppPatrol{IDPFW_NR_APP, 3};
constexpr Command kReadAndClearAppTraffic{IDPFW_NR_APP, 4};

constexpr Command kUrlCheckOff{IDPFW_NR_DOMAIN, 1};
constexpr Command kUrlCheckOn{IDPFW_NR_DOMAIN, 2};
constexpr Command kReadDomains{IDPFW_NR_DOMAIN, 3};
constexpr Command kClearDomains{IDPFW_NR_DOMAIN, 4};
constexpr Command kReadUrls{IDPFW_NR_DOMAIN, 8};
constexpr Command kReadDomainsOtherwise{IDPFW_NR_DOMAIN, 10};
constexpr Command kReadDomainsUnspecified{IDPFW_NR_DOMAIN, 0};

constexpr Command kVpCheckOff{IDPFW_NR_VP, 1};
constexpr Command kVpCheckOn{IDPFW_NR_VP, 2};
constexpr Command kReadVp{IDPFW_NR_VP, 3};
constexpr Command kSetVp{IDPFW_NR_VP, 5};
constexpr Command kReadVpOtherwise{IDPFW_NR_VP, 7};
constexpr Command kAnomalyOff{IDPFW_NR_VP, 8};
constexpr Command kAnomalyOn{IDPFW_NR_VP, 9};
constexpr Command kReadAnomalies{IDPFW_NR_VP, 11};

// An all-zero header, padding included, but for what names the command.
forward_ioctl header_of(Command command) {
    forward_ioctl header;
    memset(&header, 0, sizeof header);
    header.magic = IDPFW_MAGIC;
    header.nr = command.nr;
    header.op = command.op;
    return header;
}

int send(forward_ioctl &header) {
    return run_ioctl(IDPFW_REQUEST(header.nr), &header);
}

// A command without input and output; what the engine says it wrote is of no interest.
int send_plain(Command command) {
    uint32_t buf_used_len = 0;
    forward_ioctl header = header_of(command);
    header.out_used_len = &buf_used_len;
    return send(header);
}

int send_input(Command command, void *input, uint32_t length) {
    forward_ioctl header = header_of(command);
    header.in_type = 2;
    header.in_raw = input;
    header.in_len = length;
    return send(header) == 0 ? 0 : -1;
}

int read_into(Command command, void *buffer, uint32_t size, uint32_t *buf_used_len) {
    forward_ioctl header = header_of(command);
    header.out = buffer;
    header.out_len = size;
    header.out_used_len = buf_used_len;
    return send(header);
}

// Nothing beyond what the engine reports as written may be read as a record.
int read_table(Command command, void *buffer, uint32_t size) {
    uint32_t buf_used_len = 0;
    const int result = read_into(command, buffer, size, &buf_used_len);
    if (buf_used_len < size)
        memset(static_cast<char *>(buffer) + buf_used_len, 0, size - buf_used_len);
    return result;
}

template <typename Record>
int read_records(Command command, uint32_t slots, Record **output) {
    const auto size = static_cast<uint32_t>(slots * sizeof(Record));
    *output = static_cast<Record *>(calloc(1, size));
    return *output != nullptr ? read_table(command, *output, size) : -1;
}

int read_opaque(Command command, uint32_t size, void **output, uint32_t *buf_used_len) {
    *output = calloc(1, size);
    return *output != nullptr ? read_into(command, *output, size, buf_used_len) : -1;
}

} // namespace

int run_ioctl(unsigned long request, forward_ioctl *header) {
    const Descriptor device(open(IDPFW_DEVICE, O_RDWR)); // no O_CLOEXEC, as it always was
    if (!device)
        return -1;
    return ioctl(device.get(), request, header) < 0 ? -2 : 0;
}

int get_fw_user_list(devid_user_entry **output) {
    return read_records(kReadUsers, IDPFW_USER_SLOTS, output);
}

int get_fw_user_app_rate(devid_app_rate_entry **output) {
    return read_records(kReadAppRates, IDPFW_APP_SLOTS, output);
}

int get_fw_app_bw_clear(devid_app_bw_entry **output) {
    return read_records(kReadAndClearAppTraffic, IDPFW_APP_SLOTS, output);
}

int get_fw_app_patrol(devid_app_patrol_list_entry **output) {
    return read_records(kReadAppPatrol, IDPFW_APP_SLOTS, output);
}

int set_fw_app_patrol(void *input, unsigned int length) {
    return send_input(kSetAppPatrol, input, length);
}

int set_fw_vp(void *input, unsigned int length) {
    return send_input(kSetVp, input, length);
}

int get_fw_user_domain_list(void **output, unsigned int *buf_used_len, int flag) {
    Command command =
        kReadDomainsUnspecified; // deliberate: callers rely on its reaching the engine
    if (flag == 0)
        command = kReadDomains;
    else if (flag == 1)
        command = kReadDomainsOtherwise;
    return read_opaque(command, IDPFW_DOMAIN_LIST_SIZE, output, buf_used_len);
}

int get_fw_wrs_url_list(void **output, unsigned int *buf_used_len) {
    return read_opaque(kReadUrls, IDPFW_URL_LIST_SIZE, output, buf_used_len);
}

int get_fw_vp_list(void **output, unsigned int *buf_used_len, int flag) {
    return read_opaque(flag == 2 ? kReadVpOtherwise : kReadVp, IDPFW_VP_LIST_SIZE, output,
                       buf_used_len);
}

int get_fw_anomaly_list(void **output, unsigned int *buf_used_len) {
    return read_opaque(kReadAnomalies, IDPFW_ANOMALY_LIST_SIZE, output, buf_used_len);
}

int set_fw_user_domain_clear(void) {
    return send_plain(kClearDomains);
}

int set_fw_url_check(unsigned char flag) {
    return send_plain(flag != 0 ? kUrlCheckOn : kUrlCheckOff);
}

int set_fw_vp_check(unsigned char flag) {
    return send_plain(flag != 0 ? kVpCheckOn : kVpCheckOff);
}

int _set_anomaly(int action) {
    return send_plain({IDPFW_NR_VP, static_cast<uint8_t>(action)});
}

int set_anomaly_enable(void) {
    return _set_anomaly(kAnomalyOn.op);
}

int set_anomaly_disable(void) {
    return _set_anomaly(kAnomalyOff.op);
}
