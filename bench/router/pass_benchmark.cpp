// Time of a pass at growing table sizes, beside the straightforward nested version; of a report of
// a full buffer; of loading the databases.
#include "bench/router/nested_pass.h"
#include "bench/router/router_in_memory.h"
#include "common/text.h"
#include "dpi/conf_app.h"
#include "dpi/usr_ioctl.h"
#include "support/private_root.h"
#include "trafficUsageDetailsD/record_buffer.h"
#include "trafficUsageDetailsD/usage_report.h"
#include "trafficUsageDetailsD/usage_table.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>

namespace {

using Pass = int (*)();

void growing(benchmark::State &state, Pass pass) {
    fillEngine(static_cast<std::size_t>(state.range(0)));
    updateTrafficUsageDTable(); // from here on every row has its entry
    for (auto _ : state) {
        state.PauseTiming();
        growRows();
        state.ResumeTiming();
        pass();
    }
    freeTrafficUsageDTable();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void unchanged(benchmark::State &state, Pass pass) {
    fillEngine(static_cast<std::size_t>(state.range(0)));
    updateTrafficUsageDTable();
    settingReads();
    for (auto _ : state)
        pass();
    state.counters["settingReads"] =
        static_cast<double>(settingReads()) / static_cast<double>(state.iterations());
    freeTrafficUsageDTable();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// As growing, but the rows come in another order in every pass, never in that of the table.
void reordered(benchmark::State &state) {
    fillEngine(static_cast<std::size_t>(state.range(0)));
    updateTrafficUsageDTable();
    for (auto _ : state) {
        state.PauseTiming();
        growRows();
        reverseRows();
        state.ResumeTiming();
        updateTrafficUsageDTable();
    }
    freeTrafficUsageDTable();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// What no pass can go below: reading the engine's answer and touching each row and entry once.
void floorOfAPass(benchmark::State &state) {
    fillEngine(static_cast<std::size_t>(state.range(0)));
    updateTrafficUsageDTable();
    for (auto _ : state) {
        devid_user_entry *users = nullptr;
        devid_app_rate_entry *rows = nullptr;
        get_fw_user_list(&users);
        get_fw_user_app_rate(&rows);
        const devid_app_rate_entry *row = rows;
        for (list_head *link = trafficUsageD_table.next; link != &trafficUsageD_table;
             link = link->next, ++row) {
            auto *entry = LIST_RECORD(link, TrafficUsageDEntry, list);
            entry->current_downloadBandwidth = static_cast<double>(row->down_accl_byte);
        }
        free(rows);
        free(users);
    }
    freeTrafficUsageDTable();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void idleLimitReads(benchmark::State &state) {
    for (auto _ : state) {
        for (int i = 0; i < state.range(0); ++i)
            benchmark::DoNotOptimize(getTUDMaxIdleTime());
    }
}

void fullReport(benchmark::State &state) {
    fillEngine(1);
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < MAX_ENTRY; ++i) {
            trafficBuffer[i] = {};
            trafficBuffer[i].vendorId = i % 63;
            trafficBuffer[i].typeId = i % 49;
            copy_text(trafficBuffer[i].appName, "Application");
            trafficBuffer[i].trafficStartTime = 1;
        }
        state.ResumeTiming();
        cJSON *document = createTrafficUsageDetailObj();
        char *text = cJSON_Print(document);
        cJSON_free(text);
        cJSON_Delete(document);
    }
}

void loadDeviceDatabase(benchmark::State &state) {
    fillEngine(1);
    for (auto _ : state) {
        list_head head;
        list_init(&head);
        init_dev_os(&head);
        free_dev_os(&head);
    }
}

void loadNameDatabases(benchmark::State &state) {
    fillEngine(1);
    for (auto _ : state) {
        list_head head;
        list_init(&head);
        init_app_inf(&head);
        free_app_inf(&head);
        init_app_cat(&head);
        free_app_cat(&head);
    }
}

void tableSizes(benchmark::internal::Benchmark *b) {
    for (const int rows : {1000, 4000, 16000, 32256})
        b->Arg(rows);
    b->Unit(benchmark::kMicrosecond);
}

void nestedSizes(benchmark::internal::Benchmark *b) {
    tableSizes(b);
    b->Iterations(1); // seconds each at the largest size
}

BENCHMARK_CAPTURE(growing, indexed, updateTrafficUsageDTable)->Apply(tableSizes);
BENCHMARK_CAPTURE(unchanged, indexed, updateTrafficUsageDTable)->Apply(tableSizes);
BENCHMARK(reordered)->Apply(tableSizes);
BENCHMARK(floorOfAPass)->Apply(tableSizes);
BENCHMARK(idleLimitReads)->Apply(tableSizes);
BENCHMARK_CAPTURE(growing, nested, nestedPass)->Apply(nestedSizes);
BENCHMARK_CAPTURE(unchanged, nested, nestedPass)->Apply(nestedSizes);
BENCHMARK(fullReport)->Unit(benchmark::kMicrosecond);
BENCHMARK(loadDeviceDatabase)->Unit(benchmark::kMicrosecond);
BENCHMARK(loadNameDatabases)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    const std::string refusal = rig::enterPrivateRoot();
    if (!refusal.empty()) {
        fprintf(stderr, "no private root on this machine: %s\n", refusal.c_str());
        return 1;
    }
    rig::resetPrivateRoot();
    benchmark::RunSpecifiedBenchmarks();
    rig::leavePrivateRoot();
    return 0;
}
