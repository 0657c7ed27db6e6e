#include "engine/packets/ndpi_classifier.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <ndpi_api.h>
#include <set>

namespace idpfwd {
namespace {

// nDPI sees this much of a packet (all of what segmentation offload has merged: a certificate shows
// only there), copied into a buffer with zeros behind it: its dissectors were not all written for
// frames that end in the middle of a header.
constexpr std::size_t kInspected = 65'000;
constexpr std::size_t kMargin = 512;

static_assert(Classifier::kMostPackets == NDPI_MAX_NUM_PKTS_PER_FLOW_TO_DISSECT);

void putWord(std::vector<std::uint8_t> &bytes, std::size_t offset, std::size_t value) {
    bytes[offset] = static_cast<std::uint8_t>(value >> 8);
    bytes[offset + 1] = static_cast<std::uint8_t>(value);
}

// nDPI leaves out packets that claim more than was captured, among them every frame that
// segmentation offload has merged: the copy says what is there.
void correctLength(std::vector<std::uint8_t> &packet, std::size_t size) {
    if (packet[0] >> 4 == 4)
        putWord(packet, 2, size);
    else
        putWord(packet, 4, size - 40);
}

// The beginning of a record of encrypted data, which TLS sends when both ends have agreed on a key.
bool isApplicationData(const Packet &packet) {
    return packet.payload.size() > 2 && packet.payload[0] == 23 && packet.payload[1] == 3;
}

// nDPI's allocations of this thread, in bytes: what a call into it adds belongs to the call's flow.
thread_local std::int64_t allocated = 0;

void *allocate(std::size_t size) {
    void *made = std::malloc(size);
    allocated += static_cast<std::int64_t>(malloc_usable_size(made));
    return made;
}

void release(void *made) {
    allocated -= static_cast<std::int64_t>(malloc_usable_size(made));
    std::free(made);
}

// Adds what nDPI allocates during its life to a flow's bytes.
class Measured {
  public:
    explicit Measured(Classifier::FlowState &state) : state_(state), before_(allocated) {}
    Measured(const Measured &) = delete;
    Measured &operator=(const Measured &) = delete;
    ~Measured() {
        const std::int64_t bytes = static_cast<std::int64_t>(state_.bytes) + allocated - before_;
        state_.bytes = static_cast<std::size_t>(std::max<std::int64_t>(bytes, 0));
    }

  private:
    Classifier::FlowState &state_;
    std::int64_t before_;
};

} // namespace

void Classifier::ModuleDeleter::operator()(ndpi_detection_module_struct *module) const {
    ndpi_exit_detection_module(module);
}

void Classifier::FlowDeleter::operator()(ndpi_flow_struct *flow) const {
    ndpi_free_flow(flow);
}

Classifier::Classifier(ndpi_detection_module_struct *module)
    : module_(module), copy_(kInspected + kMargin) {}

std::unique_ptr<Classifier> Classifier::create() {
    if (ndpi_get_api_version() != NDPI_API_VERSION)
        return nullptr;
    set_ndpi_malloc(allocate);
    set_ndpi_free(release);
    ndpi_detection_module_struct *module = ndpi_init_detection_module(ndpi_no_prefs);
    if (module == nullptr)
        return nullptr;
    NDPI_PROTOCOL_BITMASK all;
    NDPI_BITMASK_SET_ALL(all);
    ndpi_set_protocol_detection_bitmask2(module, &all);
    ndpi_finalize_initialization(module);
    return std::unique_ptr<Classifier>(new Classifier(module));
}

Classifier::FlowState Classifier::newFlow() {
    const std::size_t size = ndpi_detection_get_sizeof_ndpi_flow_struct();
    auto *flow = static_cast<ndpi_flow_struct *>(ndpi_flow_malloc(size));
    if (flow != nullptr)
        std::memset(flow, 0, size);
    return {.flow = std::unique_ptr<ndpi_flow_struct, FlowDeleter>(flow),
            .bytes = malloc_usable_size(flow)};
}

std::uint8_t Classifier::categoryOf(std::uint16_t id) const {
    ndpi_protocol protocol{};
    protocol.app_protocol = id;
    return static_cast<std::uint8_t>(ndpi_get_proto_category(module_.get(), protocol));
}

// A look-up of a well-known name is still a look-up, not that service's traffic.
bool Classifier::isLookUp(std::uint16_t id) const {
    return id != NDPI_PROTOCOL_UNKNOWN && ndpi_is_subprotocol_informative(module_.get(), id) != 0;
}

Application Classifier::application(std::uint16_t master, std::uint16_t id) const {
    const std::uint16_t chosen = id == NDPI_PROTOCOL_UNKNOWN || isLookUp(master) ? master : id;
    if (chosen >= ndpi_get_num_supported_protocols(module_.get()))
        return {};
    return {categoryOf(chosen), chosen};
}

// Whether further packets could change what the flow is taken for: a certificate or a reply may yet
// tell more.
bool Classifier::mayChange(ndpi_flow_struct &flow, const Packet &packet) const {
    const auto &[application, master] = flow.detected_protocol_stack;
    if (isLookUp(application) || isLookUp(master))
        return false; // a look-up stays one whatever the reply says
    if (flow.extra_packets_func == nullptr)
        return false; // no dissector waits for them
    const bool tls = application == NDPI_PROTOCOL_TLS || master == NDPI_PROTOCOL_TLS;
    if (tls && packet.protocol == kProtocolTcp &&
        (flow.protos.tls_quic.subprotocol_detected || isApplicationData(packet)))
        return false; // the hello's name has told it; no certificate comes behind data
    return ndpi_extra_dissection_possible(module_.get(), &flow) != 0;
}

std::optional<Application> Classifier::inspect(FlowState &state, const Packet &packet,
                                               std::uint64_t milliseconds) {
    const std::size_t size = std::min(packet.ip.size(), kInspected);
    std::copy_n(packet.ip.begin(), size, copy_.begin());
    std::fill_n(copy_.begin() + static_cast<std::ptrdiff_t>(size), kMargin, 0);
    correctLength(copy_, size);
    const Measured measured(state);
    const ndpi_protocol seen =
        ndpi_detection_process_packet(module_.get(), state.flow.get(), copy_.data(),
                                      static_cast<unsigned short>(size), milliseconds);
    if (seen.app_protocol == NDPI_PROTOCOL_UNKNOWN || mayChange(*state.flow, packet))
        return std::nullopt;
    return application(seen.master_protocol, seen.app_protocol);
}

Application Classifier::giveUp(FlowState &state) {
    const Measured measured(state);
    std::uint8_t guessed = 0;
    const ndpi_protocol last = ndpi_detection_giveup(module_.get(), state.flow.get(), 1, &guessed);
    return application(last.master_protocol, last.app_protocol);
}

// What it has guessed nDPI takes for found, and looks no further.
Application Classifier::guess(FlowState &state) {
    auto &found = state.flow->detected_protocol_stack;
    const bool unknown = found[0] == NDPI_PROTOCOL_UNKNOWN;
    const Application application = giveUp(state);
    if (unknown)
        std::ranges::fill(found, NDPI_PROTOCOL_UNKNOWN);
    return application;
}

std::vector<NamedApplication> Classifier::applications() const {
    std::vector<NamedApplication> list;
    const unsigned count = ndpi_get_num_supported_protocols(module_.get());
    for (unsigned id = 0; id < count; id++) {
        const auto narrow = static_cast<std::uint16_t>(id);
        const char *name = ndpi_get_proto_name(module_.get(), narrow);
        list.push_back({{categoryOf(narrow), narrow}, name == nullptr ? "" : name});
    }
    return list;
}

std::vector<NamedCategory> Classifier::categories() const {
    std::set<std::uint8_t> used;
    for (const NamedApplication &named : applications())
        used.insert(named.application.category);
    std::vector<NamedCategory> list;
    for (const std::uint8_t id : used) {
        const auto category = static_cast<ndpi_protocol_category_t>(id);
        const char *name = ndpi_category_get_name(module_.get(), category);
        list.push_back({id, name == nullptr ? "" : name});
    }
    return list;
}

} // namespace idpfwd
