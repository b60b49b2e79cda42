"""Pairs the measurements of the benches: prints a table of ours beside each peer and draws it as a chart.

bench_report.py FOLDER reads FOLDER/*.json as Google Benchmark writes them, with names as bench/bench_kit.h says, and
writes table.txt and chart.svg beside them.
"""

import html
import json
import math
import pathlib
import re
import statistics
import sys
from dataclasses import dataclass

# What Google Benchmark itself appends to a name.
SUFFIX = re.compile(r"/(real_time|process_time|manual_time|threads:\d+|iterations:\d+|repeats:\d+|min_time:[^/]*)$")
UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


@dataclass
class Measurement:
    value: float
    unit: str
    target: float


@dataclass
class Row:
    what: str
    ours: Measurement
    peer_name: str
    peer: Measurement

    @property
    def ratio(self):
        return self.ours.value / self.peer.value if self.peer.value else math.inf

    @property
    def target(self):
        return self.peer.target

    @property
    def missed(self):
        return self.target > 0 and self.ratio > self.target


def bare_name(run_name):
    while (shorter := SUFFIX.sub("", run_name)) != run_name:
        run_name = shorter
    return run_name


def value_of(run):
    """The figure that a run is compared by, and its unit."""
    if "value" in run:
        return run["value"], run.get("label", "")
    clock = "real_time" if re.search(r"/(real|manual)_time", run["run_name"]) else "cpu_time"
    return run[clock] * UNITS[run["time_unit"]], "ns"


def read_measurements(path):
    """Name to median over the repetitions, in the order of the file's registration."""
    runs = {}
    for run in json.loads(path.read_text())["benchmarks"]:
        if run["run_type"] != "iteration":
            continue
        if run.get("error_occurred"):
            print(f"{run['run_name']}: {run.get('error_message', 'failed')}", file=sys.stderr)
            continue
        runs.setdefault((run["family_index"], bare_name(run["run_name"])), []).append(run)
    measurements = {}
    for (_, name), repetitions in sorted(runs.items(), key=lambda item: item[0][0]):
        values = [value_of(run) for run in repetitions]
        target = repetitions[0].get("target", 0.0)
        measurements[name] = Measurement(statistics.median(value for value, _ in values), values[0][1], target)
    return measurements


def read_rows(folder):
    rows = []
    for path in sorted(folder.glob("*.json")):
        measurements = read_measurements(path)
        for name, peer in measurements.items():
            what, _, side = name.rpartition("/")
            ours = measurements.get(what + "/ours")
            if side != "ours" and ours is not None:
                rows.append(Row(what, ours, side, peer))
    return rows


def shown(measurement):
    value, unit = measurement.value, measurement.unit
    if unit == "ns":
        for name, size in reversed(UNITS.items()):
            if value >= size or name == "ns":
                return f"{value / size:.3g} {name}" if value / size < 1000 else f"{value / size:.0f} {name}"
    return f"{value:,.0f} {unit}".rstrip()


def table(rows):
    lines = [("what", "ours", "peer", "", "ratio", "target", "")]
    for row in rows:
        target = f"{row.target:g}" if row.target > 0 else "-"
        mark = "MISSED" if row.missed else ""
        lines.append((row.what, shown(row.ours), shown(row.peer), row.peer_name, f"{row.ratio:.2f}", target, mark))
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    left = {0, 3, 6}
    text = "\n".join(
        "  ".join(cell.ljust(width) if i in left else cell.rjust(width) for i, (cell, width) in enumerate(zip(line, widths)))
        .rstrip() for line in lines)
    missed = sum(row.missed for row in rows)
    with_target = sum(row.target > 0 for row in rows)
    return f"{text}\n\n{with_target - missed} of {with_target} targets met\n"


def chart(rows):
    """One bar for each row, its length the ratio on a logarithmic scale; a tick stands at the target."""
    lowest, highest = 0.02, 5.0
    label, width, height = 430, 520, 18
    scale = lambda ratio: width * math.log(min(max(ratio, lowest), highest) / lowest) / math.log(highest / lowest)
    total = len(rows) * height + 40
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{label + width + 70}" height="{total}" '
           'font-family="sans-serif" font-size="11">',
           '<rect width="100%" height="100%" fill="white"/>']
    for mark in (0.05, 0.1, 0.25, 0.5, 1, 2):
        x = label + scale(mark)
        out.append(f'<line x1="{x:.1f}" y1="20" x2="{x:.1f}" y2="{total - 10}" stroke="{"#555" if mark == 1 else "#ddd"}"/>'
                   f'<text x="{x:.1f}" y="14" text-anchor="middle">{mark:g}</text>')
    for index, row in enumerate(rows):
        y = 24 + index * height
        colour = "#c0392b" if row.missed else "#2e86c1"
        name = html.escape(f"{row.what} / {row.peer_name}")
        out.append(f'<text x="{label - 6}" y="{y + 11}" text-anchor="end">{name}</text>'
                   f'<rect x="{label}" y="{y}" width="{scale(row.ratio):.1f}" height="{height - 4}" fill="{colour}"/>'
                   f'<text x="{label + scale(row.ratio) + 4:.1f}" y="{y + 11}">{row.ratio:.2f}</text>')
        if row.target > 0:
            x = label + scale(row.target)
            out.append(f'<line x1="{x:.1f}" y1="{y - 2}" x2="{x:.1f}" y2="{y + height - 2}" stroke="black" stroke-width="2"/>')
    out.append("</svg>")
    return "\n".join(out)


def main():
    folder = pathlib.Path(sys.argv[1])
    rows = read_rows(folder)
    if not rows:
        sys.exit(f"bench_report: nothing to compare in {folder}")
    text = table(rows)
    (folder / "table.txt").write_text(text)
    (folder / "chart.svg").write_text(chart(rows))
    print(text)
    print(f"Ratio: ours divided by the peer, smaller is better. Chart: {folder / 'chart.svg'}")


if __name__ == "__main__":
    main()
