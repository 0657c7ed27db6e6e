"""The usage report as a table, and held against the engine's own counters."""

import time

COLUMNS = ("device", "type", "category", "application", "start", "duration", "up", "down")
RIGHT_ALIGNED = {"duration", "up", "down"}


def records_of(reports):
    return [record for report in reports for record in report["trafficInfo"]]


def rows_of(counters):
    """(MAC, category, application) -> (up, down), of the rows that carry traffic."""
    rows = {}
    for user in counters["users"]:
        for row in user["rows"]:
            names = ("Others", "Others") if not row["cat_id"] and not row["app_id"] else (
                row["category"], row["application"])
            if row["up_bytes"] or row["down_bytes"]:
                rows[(user["mac"].upper(), *names)] = (row["up_bytes"], row["down_bytes"])
    return rows


def print_table(reports, counters):
    hosts = {user["mac"].upper(): user["host_name"] for user in counters["users"]}
    lines = [COLUMNS]
    for record in records_of(reports):
        mac = record["macAddress"]
        start = time.strftime("%H:%M:%S", time.localtime(record["trafficStartTime"]))
        lines.append((f"{hosts.get(mac) or '?'} {mac}", record["devType"], record["appType"],
                      record["appName"], start, f"{record['duration']} s",
                      f"{record['uploadBandwidth']:,.0f}", f"{record['downloadBandwidth']:,.0f}"))
    widths = [max(len(line[i]) for line in lines) for i in range(len(COLUMNS))]
    for number, line in enumerate(lines):
        cells = (cell.rjust(width) if column in RIGHT_ALIGNED else cell.ljust(width)
                 for cell, width, column in zip(line, widths, COLUMNS))
        print("  ".join(cells).rstrip())
        if number == 0:
            print("  ".join("-" * width for width in widths))


def compare(reports, counters, ended):
    """Prints how the reported bytes stand to the engine's; True when they agree to the byte."""
    reported = {}
    for record in records_of(reports):
        key = (record["macAddress"], record["appType"], record["appName"])
        up, down = reported.get(key, (0, 0))
        reported[key] = (up + record["uploadBandwidth"], down + record["downloadBandwidth"])

    rows = rows_of(counters)
    agreeing = 0
    faults = []
    for key, counted in rows.items():
        if key not in ended:
            print(f"Still busy, left out of the comparison: {' / '.join(key)}")
        elif reported.get(key, (0, 0)) == counted:
            agreeing += 1
        else:
            faults.append(f"{' / '.join(key)}: reported {reported.get(key)}, counted {counted}")
    faults += [f"{' / '.join(key)}: reported, but unknown to the engine"
               for key in reported.keys() - rows.keys()]
    for fault in faults:
        print(f"DISAGREES: {fault}")
    print(f"{agreeing} of {len(ended)} ended device/application rows agree with the engine's own "
          "counters to the byte.")
    if not ended:
        print("No period had ended, so there was nothing to compare: watch for longer (--seconds).")
    return not faults and agreeing > 0
