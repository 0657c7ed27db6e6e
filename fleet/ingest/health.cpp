#include "ingest/health.h"

namespace fleet {
namespace {

class Metrics {
  public:
    void add(const char *name, const char *type, const char *help, std::uint64_t value) {
        head(name, type, help);
        text += std::string(name) + " " + std::to_string(value) + "\n";
    }

    void head(const char *name, const char *type, const char *help) {
        text += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }

    std::string text;
};

} // namespace

std::string metricsText(const Gauges &gauges) {
    Metrics out;
    out.add("fleet_reports_total", "counter", "Reports stored.", gauges.reports);
    out.add("fleet_rows_total", "counter", "Rows stored.", gauges.rows);
    out.add("fleet_batches_total", "counter", "Inserts that the store took.", gauges.batches);
    out.add("fleet_refusals_total", "counter", "Inserts that the store refused.", gauges.refusals);
    out.add("fleet_store_errors_total", "counter", "Inserts that found no store.",
            gauges.storeErrors);
    out.add("fleet_store_microseconds_total", "counter", "Time spent on inserts.",
            gauges.storeMicroseconds);
    out.add("fleet_buffer_errors_total", "counter", "Fetches that failed.", gauges.bufferErrors);
    out.add("fleet_given_back_total", "counter", "Reports left to another ingester.",
            gauges.givenBack);
    out.head("fleet_dead_letters_total", "counter", "Messages that were no good report.");
    for (std::size_t i = 0; i < kReasons; ++i)
        out.text += "fleet_dead_letters_total{reason=\"" +
                    std::string(reasonName(static_cast<Reason>(i))) + "\"} " +
                    std::to_string(gauges.dead[i]) + "\n";
    out.add("fleet_in_flight", "gauge", "Reports fetched here and not settled.", gauges.inFlight);
    out.add("fleet_waiting", "gauge", "Reports in the buffer that nobody fetched.", gauges.waiting);
    out.add("fleet_ack_pending", "gauge", "Reports fetched by any ingester, not acknowledged.",
            gauges.pending);
    out.add("fleet_consumer", "gauge", "1 when the buffer's consumer is there.",
            gauges.consumer ? 1 : 0);
    out.add("fleet_store", "gauge", "1 when the store answered last time.", gauges.store ? 1 : 0);
    return out.text;
}

Health health(const Gauges &gauges, std::uint64_t mostWaiting) {
    if (!gauges.consumer)
        return {false, "the consumer is missing or the buffer can't be reached\n"};
    if (!gauges.store)
        return {false, "the store can't be reached\n"};
    if (gauges.waiting > mostWaiting)
        return {false, std::to_string(gauges.waiting) + " reports wait, the limit is " +
                           std::to_string(mostWaiting) + "\n"};
    return {true, std::to_string(gauges.waiting) + " reports wait\n"};
}

} // namespace fleet
