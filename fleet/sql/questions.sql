-- The questions that an operator asks, as views. Each begins with what it answers and what its columns
-- are; `fleet-ingest setup` makes them anew, so that an upgrade brings its own.

-- Applications by day, over all routers: how much, by how many devices.
DROP TABLE IF EXISTS usage.applications_by_day;
CREATE VIEW usage.applications_by_day AS
SELECT day, app_type, app_name, uniq(router, device) AS devices, sum(seconds) AS seconds,
       sum(upload) AS upload, sum(download) AS download
FROM usage.daily FINAL
GROUP BY day, app_type, app_name
ORDER BY day DESC, download DESC;

-- The applications that moved most over the last 30 days.
DROP TABLE IF EXISTS usage.top_applications;
CREATE VIEW usage.top_applications AS
SELECT app_type, app_name, uniq(router) AS routers, uniq(router, device) AS devices,
       sum(upload) AS upload, sum(download) AS download, upload + download AS bytes
FROM usage.daily FINAL
WHERE day > today() - 30
GROUP BY app_type, app_name
ORDER BY bytes DESC
LIMIT 20;

-- Routers that were heard in the last 60 days, and not in the last two. "silent_hours" counts on.
DROP TABLE IF EXISTS usage.silent_routers;
CREATE VIEW usage.silent_routers AS
SELECT region, router, max(received) AS last_heard,
       intDiv(toUInt32(now()) - toUInt32(last_heard), 3600) AS silent_hours
FROM usage.arrivals
WHERE received > now() - 60 * 86400
GROUP BY region, router
HAVING last_heard < now() - 2 * 86400
ORDER BY last_heard;

-- One router's last month, by device and application: add WHERE router = '...'.
DROP TABLE IF EXISTS usage.router_month;
CREATE VIEW usage.router_month AS
SELECT router, device, any(device_type) AS type, app_type, app_name, sum(seconds) AS seconds,
       sum(upload) AS upload, sum(download) AS download
FROM usage.daily FINAL
WHERE day > today() - 31
GROUP BY router, device, app_type, app_name
ORDER BY download DESC;

-- Regions by day: how many routers, how much.
DROP TABLE IF EXISTS usage.regions;
CREATE VIEW usage.regions AS
SELECT day, region, uniq(router) AS routers, uniq(router, device) AS devices, sum(records) AS records,
       sum(upload) AS upload, sum(download) AS download
FROM usage.daily FINAL
GROUP BY day, region
ORDER BY day DESC, download DESC;

-- The way through the buffer, by minute of arrival over the last hour: reports, and how many seconds
-- they waited until they were stored.
DROP TABLE IF EXISTS usage.buffer_lag;
CREATE VIEW usage.buffer_lag AS
SELECT toStartOfMinute(received) AS minute, count() AS reports,
       round(avg(toUInt32(stored) - toUInt32(received)), 1) AS average_seconds,
       max(toInt64(toUInt32(stored)) - toUInt32(received)) AS longest_seconds
FROM usage.arrivals
WHERE received > now() - 3600
GROUP BY minute
ORDER BY minute DESC;

-- Reports that routers lost: what outboxes had to give up, and sequence numbers that never came although
-- a later one did more than a day ago. An outbox whose start lies before what is kept counts from there.
DROP TABLE IF EXISTS usage.losses;
CREATE VIEW usage.losses AS
SELECT region, router, outbox, max(dropped) AS given_up,
       max(sequence) - min(sequence) + 1 - uniqExact(sequence) AS gaps, max(received) AS last_heard
FROM usage.arrivals
GROUP BY region, router, outbox
HAVING given_up > 0 OR (gaps > 0 AND last_heard < now() - 86400)
ORDER BY given_up DESC, gaps DESC;

-- Clocks and engines that can't be right, by router over the last week.
DROP TABLE IF EXISTS usage.oddities;
CREATE VIEW usage.oddities AS
SELECT router, sum(clock_bad) AS bad_clocks, sum(bytes_negative) AS negative_bytes,
       count() AS records
FROM usage.reports
WHERE received > now() - 7 * 86400 AND (clock_bad OR bytes_negative)
GROUP BY router
ORDER BY bad_clocks + negative_bytes DESC;
