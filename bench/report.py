#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes docs/benchmarks from the measurements: a table in Markdown and drawings.

    report.py DIRECTORY         from DIRECTORY/figures.json
    report.py DIRECTORY RAW     first makes figures.json from the samples RAW/messages.json and RAW/inprocess.json

figures.json has the figures of the page, one line for each row of its tables. The samples are not kept in the repository.
"""
import json
import pathlib
import re
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "vos"  # the same figures give the same file
from matplotlib import pyplot  # noqa: E402  (the backend comes first)

UNITS = {64: "64 B", 1024: "1 KiB", 16384: "16 KiB", 61440: "60 KiB"}


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "|".join(["---"] + ["---:"] * (len(head) - 1)) + "|"]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def number(value, digits=0):
    return "-" if value is None else f"{value:,.{digits}f}"


def ratio(told):
    return f"{told['median']:.3f} ({told['low']:.3f} to {told['high']:.3f})" if told else "-"


def micro(nanoseconds):
    return number(nanoseconds / 1000, 1)


def draw(directory, name, width=8.0, height=3.6):
    """A drawing that is saved when the block ends."""

    class Drawing:
        def __enter__(self):
            self.figure, self.axes = pyplot.subplots(figsize=(width, height))
            return self.axes

        def __exit__(self, *_):
            self.figure.tight_layout()
            self.figure.savefig(directory / f"{name}.svg", metadata={"Date": None, "Creator": None})
            pyplot.close(self.figure)

    return Drawing()


def floor_section(rows, directory):
    with draw(directory, "floor") as axes:
        for placement in dict.fromkeys(row["placement"] for row in rows):
            own = [row for row in rows if row["placement"] == placement and row["clients"] == 1]
            axes.plot([UNITS[row["size"]] for row in own], [row["rate_ratio"]["median"] for row in own], "o-", label=placement)
        axes.axhline(1, color="gray", linewidth=0.8)
        axes.set(title="Requests per second, in parts of what the bare system calls reach (one client)", ylim=(0.8, 1.1))
        axes.legend()
    body = [
        [
            f"{row['placement']}, {row['clients']} client{'s' if row['clients'] > 1 else ''}, {UNITS[row['size']]}",
            number(row["vos"]["rate"]),
            number(row["floor"]["rate"]),
            ratio(row["rate_ratio"]),
            micro(row["vos"]["p50"]),
            ratio(row["p50_ratio"]),
            ratio(row.get("copied_rate_ratio")),
        ]
        for row in rows
    ]
    head = ["case", "requests/s", "floor", "ratio (quartiles)", "p50 µs", "p50 ratio", "ratio to the floor that copies"]
    return (
        "## Requests against the floor\n\n"
        "The floor makes the same system calls by hand. Both take turns of a fraction of a second; a ratio is the median of\n"
        "those inside each round. The last column compares with a floor whose server, like `vosMsgRecv`,\n"
        "copies the payload from the buffer into which it was received to a buffer of the application.\n\n![](floor.svg)\n\n"
        + table(head, body)
    )


def others_section(rows, directory):
    parts = [
        "## Other ways to exchange messages\n\nRequests per second with one client. `kept` keeps its connection, `request`"
        " opens one for each request, as vos does.\n[Performance](../performance.md) explains what that means.\n"
    ]
    ways = list(dict.fromkeys(way for row in rows for way in [*row["ways"], *row["missing"]]))
    columns = [(row["placement"], row["size"]) for row in rows]
    by_column = {(row["placement"], row["size"]): row for row in rows}
    body = [
        [way] + [number(by_column[column]["ways"].get(way, {}).get("rate")) for column in columns] for way in ways
    ]
    head = ["way"] + [f"{UNITS[size]}, {placement}" for placement, size in columns]
    reasons = {f"- {way}, {UNITS[row['size']]}: {why}" for row in rows for way, why in row["missing"].items()}
    first = rows[0]
    drawn = sorted(first["ways"].items(), key=lambda item: item[1].get("rate", 0))
    with draw(directory, "others", height=4.8) as axes:
        axes.barh([name for name, _ in drawn], [own.get("rate", 0) for _, own in drawn],
                  color=["tab:orange" if name.startswith("vos") else "tab:blue" for name, _ in drawn])
        axes.set(title=f"Requests per second, {UNITS[first['size']]}, {first['placement']}", xscale="log")
    parts += ["![](others.svg)\n", table(head, body)]
    if reasons:
        parts.append("Left out:\n\n" + "\n".join(sorted(reasons)) + "\n")
    return "\n".join(parts)


def calls_section(calls):
    rows = [
        [side, number(sum(calls[key].values())), ", ".join(f"{name} {count:g}" for name, count in calls[key].items())]
        for side, key in (("request", "request"), ("serve", "serve"))
    ]
    return "## System calls\n\nCounted by strace over %s requests.\n\n" % number(calls["requests"]) + table(
        ["side", "calls", "which, per request"], rows
    )


def posts_section(rows):
    body = [
        [row["placement"], number(row["vos"]["rate"]), number(row["floor"]["rate"]), ratio(row["rate_ratio"])]
        for row in rows
    ]
    return "## Messages without an answer\n\n64 B, one sender.\n\n" + table(["case", "messages/s", "floor", "ratio"], body)


def lanes_section(rows):
    body = [[f"normal queue {name}", number(row["requests"]), micro(row["p50"]), micro(row["p99"])] for name, row in rows.items()]
    return (
        "## The high-priority socket while the normal queue is full\n\nEach message of the normal queue takes the server 100 µs.\n\n"
        + table(["case", "requests", "p50 µs", "p99 µs"], body)
    )


def loops_section(rows, directory):
    with draw(directory, "loops") as axes:
        for key, title in (("timers", "timers"), ("sockets", "descriptors")):
            other = "sockets" if key == "timers" else "timers"
            own = [row for row in rows if row[other] == 0]
            axes.plot([row[key] for row in own], [row["server_cpu"] / 1000 for row in own], "o-", label=title)
        axes.set(title="Processor time of the server per request, in µs, by what its loop watches", xscale="symlog", ylim=(0, None))
        axes.legend()
    body = [[f"{row['timers']} timers, {row['sockets']} descriptors", number(row["rate"]), micro(row["server_cpu"])] for row in rows]
    return "## The receive loop\n\nServer and client on a core each, so that each wait sleeps.\n\n![](loops.svg)\n\n" + table(["loop", "requests/s", "server µs per request"], body)


def taps_section(taps):
    names = {"off": "off", "headers": "on, headers", "payload": "on, with payload"}
    body = [
        [
            f"{UNITS[row['size']]}, {names[row['tap']]}",
            number(row["rate"]),
            "1" if row["tap"] == "off" else ratio(row["rate_ratio"]),
            micro(row["p50"]),
            micro(row["server_cpu"]),
            "-" if row["tap"] == "off" else f"{row['lost']:.1%}",
        ]
        for row in taps["rows"]
    ]
    return (
        "## Messages under a tap\n\n"
        "A tap on the server: two copies for each request, one of the request and one of its answer. Server and client share\n"
        "a core; whoever reads the copies has the other one. The three states take turns, and a ratio is the median of those\n"
        f"inside each round. The kernel keeps {number(taps['queue'])} copies for a tap here; what is lost was more. The load average was\n"
        f"{number(taps['load'], 1)} when this began: other work of the machine counts in it.\n\n"
        + table(["case", "requests/s", "ratio to off (quartiles)", "p50 µs", "server µs per request", "copies lost"], body)
    )


def inprocess_section(rows, directory):
    speeds = {}
    body = []
    for row in sorted(rows, key=lambda row: [(int(part), "") if part.isdigit() else (-1, part) for part in row["name"].split("/")]):
        crc = re.match(r"crc32/(.*)/(\d+)$", row["name"])
        speed = row["bytes_per_second"]
        if crc and "changed" not in row["name"]:
            speeds.setdefault(crc.group(1), []).append((int(crc.group(2)), speed / 1e6))
        body.append([row["name"], number(row["ns"], 1 if row["ns"] < 1000 else 0), number(speed / 1e6) if speed else ""])
    with draw(directory, "crc32") as axes:
        for name, points in speeds.items():
            axes.plot(*zip(*sorted(points)), "o-", label=name)
        axes.set(title="CRC-32, MB/s by bytes", xscale="log", yscale="log")
        axes.legend()
    return "## In one process\n\nMedians of several repetitions.\n\n![](crc32.svg)\n\n" + table(["what", "ns", "MB/s"], body)


def rounded(value):
    """Eight digits, so that every figure of the page is the same as from the sample itself."""
    if isinstance(value, dict):
        return {key: rounded(each) for key, each in value.items()}
    if isinstance(value, list):
        return [rounded(each) for each in value]
    return float(f"{value:.8g}") if isinstance(value, float) else value


def taken(raw):
    """The figures of the page, computed from the samples."""
    messages = json.loads((raw / "messages.json").read_text(encoding="utf-8"))
    inprocess = json.loads((raw / "inprocess.json").read_text(encoding="utf-8"))["benchmarks"]
    for suite in ("floor", "posts"):
        for row in messages.get(suite, ()):
            row.pop("rounds", None)
    units = {"ns": 1, "us": 1e3, "ms": 1e6}
    medians = [{"name": row["run_name"], "ns": units[row["time_unit"]] * row["real_time"], "bytes_per_second": row.get("bytes_per_second")}
               for row in inprocess if row.get("aggregate_name") == "median"]
    return rounded({**messages, "inprocess": medians})


def written(figures):
    """JSON with a line for each row, so that a difference can be read."""
    def rows(value):
        if isinstance(value, dict) and "rows" in value:
            return json.dumps({**value, "rows": 0})[:-2] + rows(value["rows"]) + "}"
        if isinstance(value, list):
            return "[\n  " + ",\n  ".join(json.dumps(each) for each in value) + "\n ]"
        return json.dumps(value)
    return "{\n " + ",\n ".join(f"{json.dumps(key)}: {rows(value)}" for key, value in figures.items()) + "\n}\n"


def main(directory, raw=None):
    file = directory / "figures.json"
    if raw:
        file.write_text(written(taken(raw)), encoding="utf-8")
    messages = json.loads(file.read_text(encoding="utf-8"))
    quick = "\n**A quick run, which only shows that everything works: its figures mean nothing.**\n" if messages["quick"] else ""
    parts = [
        "# Benchmarks\n\nWritten by `scripts/bench` on %s: %s, %d processors, Linux %s. Server and client share a core, have\n"
        "one each, or are placed by the kernel. [Performance](../performance.md) explains where the time is spent.\n%s"
        % (messages["date"], messages["machine"], messages["cpus"], messages["kernel"], quick),
        floor_section(messages["floor"], directory),
        others_section(messages["others"], directory),
        calls_section(messages["calls"]),
        posts_section(messages["posts"]),
        lanes_section(messages["lanes"]),
        loops_section(messages["loops"], directory),
        taps_section(messages["taps"]),
        inprocess_section(messages["inprocess"], directory),
    ]
    (directory / "README.md").write_text("\n".join(parts), encoding="utf-8")


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
