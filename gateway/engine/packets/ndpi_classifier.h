// Names the application of a flow from its packets, through nDPI. The only file that knows nDPI.
#pragma once

#include "engine/packets/packet.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct ndpi_detection_module_struct;
struct ndpi_flow_struct;

namespace idpfwd {

// An application as the tables and the databases know it; all zero is the unknown one.
struct Application {
    std::uint8_t category = 0;
    std::uint16_t id = 0;

    friend bool operator==(const Application &, const Application &) = default;
};

struct NamedApplication {
    Application application;
    std::string name; // nDPI's own spelling
};

struct NamedCategory {
    std::uint8_t id = 0;
    std::string name;
};

class Classifier {
  public:
    struct FlowDeleter {
        void operator()(ndpi_flow_struct *flow) const;
    };
    // What nDPI remembers of a flow until it is settled.
    struct FlowState {
        std::unique_ptr<ndpi_flow_struct, FlowDeleter> flow; // null when there was no memory
        std::size_t bytes = 0;                               // that it takes
    };

    // Null when nDPI cannot be used.
    static std::unique_ptr<Classifier> create();

    // Without a flow when there is no memory.
    [[nodiscard]] static FlowState newFlow();

    // So many packets of a flow are looked at, more of them tell nothing.
    static constexpr unsigned kMostPackets = 32;

    // Looks at one more packet of a flow, which has a whole IP header. The flow's application when
    // no further packet could change it; none must be shown then.
    std::optional<Application> inspect(FlowState &state, const Packet &packet,
                                       std::uint64_t milliseconds);

    // The best that nDPI can say about a flow of which no more is to be seen.
    Application giveUp(FlowState &state);

    // The same about a flow that goes on being looked at.
    Application guess(FlowState &state);

    // Every application that the functions above can name, and their categories.
    [[nodiscard]] std::vector<NamedApplication> applications() const;
    [[nodiscard]] std::vector<NamedCategory> categories() const;

  private:
    struct ModuleDeleter {
        void operator()(ndpi_detection_module_struct *module) const;
    };

    explicit Classifier(ndpi_detection_module_struct *module);
    [[nodiscard]] bool isLookUp(std::uint16_t id) const;
    [[nodiscard]] bool mayChange(ndpi_flow_struct &flow, const Packet &packet) const;
    [[nodiscard]] Application application(std::uint16_t master, std::uint16_t id) const;
    [[nodiscard]] std::uint8_t categoryOf(std::uint16_t id) const;

    std::unique_ptr<ndpi_detection_module_struct, ModuleDeleter> module_;
    std::vector<std::uint8_t> copy_;
};

} // namespace idpfwd
