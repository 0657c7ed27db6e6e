"""The questions that an operator asks, with their answers and what these cost."""

import json

QUESTIONS = [
    ("applications by day", "SELECT day, app_name, devices, seconds, upload, download "
                            "FROM usage.applications_by_day LIMIT 5"),
    ("top applications", "SELECT app_name, routers, devices, bytes FROM usage.top_applications LIMIT 5"),
    ("routers that fell silent", "SELECT region, router, last_heard, silent_hours "
                                 "FROM usage.silent_routers LIMIT 5"),
    ("one router's last month", "SELECT device, type, app_name, upload, download "
                                "FROM usage.router_month WHERE router = 'r-0000001' LIMIT 5"),
    ("by region", "SELECT day, region, routers, devices, records, download FROM usage.regions LIMIT 5"),
    ("the buffer's lag", "SELECT minute, reports, average_seconds, longest_seconds "
                         "FROM usage.buffer_lag LIMIT 5"),
    ("what routers lost", "SELECT region, router, given_up, gaps FROM usage.losses LIMIT 5"),
    ("clocks and engines that are wrong", "SELECT router, bad_clocks, negative_bytes "
                                          "FROM usage.oddities LIMIT 5"),
]


def table(names, rows):
    cells = [names, *[[str(value) for value in row] for row in rows]]
    cells = [["".join(c if c.isprintable() else "?" for c in cell) for cell in row] for row in cells]
    widths = [max(len(row[i]) for row in cells) for i in range(len(names))]
    return "\n".join("  " + "  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip()
                     for row in cells)


def answer(stage, question):
    """Names, rows and cost of a question."""
    text = stage.ask(question + " FORMAT JSONCompact")
    found = json.loads(text, strict=False)
    cost = found["statistics"]
    return ([column["name"] for column in found["meta"]], found["data"],
            f"{cost['elapsed'] * 1000:.0f} ms, {cost['rows_read']:,} rows, "
            f"{cost['bytes_read'] / 1e6:.1f} MB read")


def show(stage):
    for title, question in QUESTIONS:
        names, rows, cost = answer(stage, question)
        print(f"\n{title} ({cost})")
        print(table(names, rows) if rows else "  none")
