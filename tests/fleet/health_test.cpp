#include "ingest/health.h"

#include "fleet/http_fake.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace fleet {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(Health, IsRedForAMissingConsumerAnAbsentStoreAndALagAboveTheLimit) {
    Gauges gauges;
    EXPECT_FALSE(health(gauges, 10).good); // nobody has seen a consumer yet
    gauges.consumer = true;
    EXPECT_TRUE(health(gauges, 10).good);
    gauges.waiting = 10;
    EXPECT_TRUE(health(gauges, 10).good);
    gauges.waiting = 11;
    EXPECT_FALSE(health(gauges, 10).good);
    gauges.waiting = 0;
    gauges.store = false;
    EXPECT_FALSE(health(gauges, 10).good);
}

TEST(Metrics, AreLinesWithANameAndAWholeNumber) {
    Gauges gauges;
    gauges.rows = UINT64_MAX;
    gauges.dead[static_cast<std::size_t>(Reason::kRange)] = 7;
    std::istringstream lines(metricsText(gauges));
    std::size_t values = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("#"))
            continue;
        const std::size_t blank = line.rfind(' ');
        ASSERT_NE(blank, std::string::npos) << line;
        EXPECT_EQ(line.find_first_not_of("0123456789", blank + 1), std::string::npos) << line;
        ++values;
    }
    EXPECT_EQ(values, 13 + kReasons);
    EXPECT_THAT(metricsText(gauges), HasSubstr("\nfleet_rows_total 18446744073709551615\n"));
    EXPECT_THAT(metricsText(gauges), HasSubstr("\nfleet_dead_letters_total{reason=\"range\"} 7\n"));
}

TEST(HealthServer, AnswersWithTheStateAsItIs) {
    Gauges gauges;
    constexpr int kPort = 25990;
    const HealthServer server("127.0.0.1:25990", gauges, 10);
    EXPECT_THAT(httpGet(kPort, "/healthz"), StartsWith("HTTP/1.1 503 "));
    gauges.consumer = true;
    EXPECT_THAT(httpGet(kPort, "/healthz"), StartsWith("HTTP/1.1 200 "));
    EXPECT_THAT(httpGet(kPort, "/metrics"), HasSubstr("\nfleet_consumer 1\n"));
    EXPECT_THAT(httpGet(kPort, "/"), StartsWith("HTTP/1.1 404 "));
}

TEST(HealthServer, RefusesAnAddressThatIsNone) {
    const Gauges gauges;
    for (const char *address : {"", "9464", "localhost:9464", "127.0.0.1:", "127.0.0.1:99999"})
        EXPECT_THROW(HealthServer(address, gauges, 1), std::runtime_error) << address;
}

} // namespace
} // namespace fleet
