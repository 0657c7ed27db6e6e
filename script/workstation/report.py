"""The usage report as a table, and held against the engine's own counters."""

import time

COLUMNS = ("device", "type", "category", "application", "start", "duration", "up", "down")
# The daemon reads a capture as if it happened now, so its times say nothing of the capture's.
CAPTURE_COLUMNS = ("device", "type", "category", "application", "last packet", "up", "down")
RIGHT_ALIGNED = {"duration", "up", "down"}


def records_of(reports):
    return [record for report in reports for record in report["trafficInfo"]]


def counted_rows(counters):
    """(MAC, category, application) -> the engine's row, of those that carry traffic."""
    rows = {}
    for user in counters["users"]:
        for row in user["rows"]:
            names = ("Others", "Others") if not row["cat_id"] and not row["app_id"] else (
                row["category"], row["application"])
            if row["up_bytes"] or row["down_bytes"]:
                rows[(user["mac"].upper(), *names)] = row
    return rows


def rows_of(counters):
    """(MAC, category, application) -> (up, down), of the rows that carry traffic."""
    return {key: (row["up_bytes"], row["down_bytes"])
            for key, row in counted_rows(counters).items()}


def key_of(record):
    return record["macAddress"], record["appType"], record["appName"]


def times_of_record(record, counted, is_capture):
    if is_capture:
        last = counted[key_of(record)]["last"] if key_of(record) in counted else None
        return [time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(last)) if last else "?"]
    start = time.strftime("%H:%M:%S", time.localtime(record["trafficStartTime"]))
    return [start, f"{record['duration']} s"]


def table_lines(reports, counters, ended, names, is_capture):
    """The records, then the rows that are still busy, with all that the engine has counted."""
    counted = counted_rows(counters)
    types = {record["macAddress"]: record["devType"] for record in records_of(reports)}
    for record in records_of(reports):
        mac, category, application = key_of(record)
        yield [f"{names.get(mac, '?')} {mac}", record["devType"], category, application,
               *times_of_record(record, counted, is_capture),
               f"{record['uploadBandwidth']:,.0f}", f"{record['downloadBandwidth']:,.0f}"]
    busy = {key: row for key, row in counted.items() if key not in ended}
    for (mac, category, application), row in sorted(
            busy.items(), key=lambda item: -item[1]["up_bytes"] - item[1]["down_bytes"]):
        yield [f"{names.get(mac, '?')} {mac}", types.get(mac, ""), category, application,
               "still busy", *([] if is_capture else [""]),
               f"{row['up_bytes']:,}", f"{row['down_bytes']:,}"]


def print_table(reports, counters, ended, names, is_capture=False):
    columns = CAPTURE_COLUMNS if is_capture else COLUMNS
    lines = [columns, *table_lines(reports, counters, ended, names, is_capture)]
    widths = [max(len(line[i]) for line in lines) for i in range(len(columns))]
    for number, line in enumerate(lines):
        cells = (cell.rjust(width) if column in RIGHT_ALIGNED else cell.ljust(width)
                 for cell, width, column in zip(line, widths, columns))
        print("  ".join(cells).rstrip())
        if number == 0:
            print("  ".join("-" * width for width in widths))
    if counted_rows(counters).keys() - ended:
        print("(Still busy: not in the report yet; up and down are all that the engine has counted.)")


def compare(reports, counters, ended):
    """Prints how the reported bytes stand to the engine's; True when they agree to the byte."""
    reported = {}
    for record in records_of(reports):
        up, down = reported.get(key_of(record), (0, 0))
        reported[key_of(record)] = (up + record["uploadBandwidth"],
                                    down + record["downloadBandwidth"])

    rows = rows_of(counters)
    agreeing = 0
    faults = []
    for key in rows.keys() & ended:
        if reported.get(key, (0, 0)) == rows[key]:
            agreeing += 1
        else:
            faults.append(f"{' / '.join(key)}: reported {reported.get(key)}, counted {rows[key]}")
    faults += [f"{' / '.join(key)}: reported, but unknown to the engine"
               for key in reported.keys() - rows.keys()]
    for fault in faults:
        print(f"DISAGREES: {fault}")
    drops = counters["capture_drops"]
    print(f"{agreeing} of {len(ended)} ended device/application rows agree with the engine's own "
          f"counters to the byte.{'' if drops is None else f' The kernel dropped {drops} packets.'}")
    if not ended:
        print("No period had ended, so there was nothing to compare: watch for longer (--seconds).")
    return not faults and agreeing > 0
