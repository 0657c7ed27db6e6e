-- The store's tables. `fleet-ingest setup` sends them, one by one, to every replica; repeating is harmless.
-- Every insert may come twice (a redelivery, a router that tries again): what tells a row apart is its
-- sorting key, and whoever reads takes FINAL.

CREATE DATABASE IF NOT EXISTS usage;

-- One row for each record of a report. A time is in seconds since 1970, as the router's clock had it.
-- `day` is the one that the period began on or, where the clock can't be right, that of its arrival (UTC).
CREATE TABLE IF NOT EXISTS usage.reports (
    router String,
    outbox String,
    sequence UInt64,
    item UInt16,
    region String,
    received DateTime,
    day Date,
    device String,
    device_type String,
    app_type String,
    app_name String,
    start_time Int64,
    end_time Int64,
    duration Int64,
    upload UInt64,
    download UInt64,
    upload_below_zero Int64,
    download_below_zero Int64,
    clock_bad UInt8,
    bytes_negative UInt8,
    stored DateTime DEFAULT now()
) ENGINE = ReplicatedReplacingMergeTree('/clickhouse/usage/reports', '{replica}')
PARTITION BY toYYYYMM(received)
ORDER BY (router, outbox, sequence, item);

-- One row for each report, also for one without records. `dropped` is what the router's outbox has had
-- to give up so far.
CREATE TABLE IF NOT EXISTS usage.arrivals (
    router String,
    outbox String,
    sequence UInt64,
    region String,
    received DateTime,
    taken Int64,
    dropped UInt64,
    records UInt16,
    stored DateTime DEFAULT now()
) ENGINE = ReplicatedReplacingMergeTree('/clickhouse/usage/arrivals', '{replica}')
PARTITION BY toYYYYMM(received)
ORDER BY (router, outbox, sequence);

-- Sums by day, made from `reports` by `fleet-ingest rollup`. The row of the highest version counts.
CREATE TABLE IF NOT EXISTS usage.daily (
    day Date,
    region String,
    router String,
    device String,
    device_type String,
    app_type String,
    app_name String,
    records UInt64,
    seconds UInt64,
    upload UInt64,
    download UInt64,
    version UInt64
) ENGINE = ReplicatedReplacingMergeTree('/clickhouse/usage/daily', '{replica}', version)
PARTITION BY toYYYYMM(day)
ORDER BY (day, region, router, device, device_type, app_type, app_name);

-- From which month on rows are kept: what `fleet-ingest retain` dropped can't be summed up again.
CREATE TABLE IF NOT EXISTS usage.retention (
    one UInt8,
    kept_from Date
) ENGINE = ReplicatedReplacingMergeTree('/clickhouse/usage/retention', '{replica}')
ORDER BY one;
