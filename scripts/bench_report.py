"""Prints tables of our figures beside those of each peer, and draws them as a chart.

bench_report.py FOLDER [FAMILY ...] reads FOLDER/FAMILY.rows, which a bench writes before it measures, and
FOLDER/FAMILY.json, the output of Google Benchmark. bench/bench_kit.h describes the names in both. Without a family it
reads all files and writes table.txt, growth.txt, chart.svg and the tables as Markdown to FOLDER.

bench_report.py FOLDER --page FILE replaces each part of FILE between `<!-- NAME -->` and `<!-- end -->` by FOLDER/NAME.md.
"""

import html
import json
import math
import pathlib
import re
import statistics
import sys
from dataclasses import dataclass, field

# The endings that Google Benchmark appends to a name.
SUFFIX = re.compile(r"/(real_time|process_time|manual_time|threads:\d+|iterations:\d+|repeats:\d+|min_time:[^/]*)$")
UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
INTERNAL = "_internal"


@dataclass
class Measurement:
    """The median of the repetitions. The spread is half of the range of their middle half, divided by the median."""
    value: float = math.nan
    spread: float = 0.0
    unit: str = "ns"
    error: str = ""


@dataclass
class Row:
    what: str
    peer_name: str
    target: float
    internal: bool
    ours: Measurement
    peer: Measurement

    @property
    def ratio(self):
        if self.error:
            return math.nan
        return self.ours.value / self.peer.value if self.peer.value else math.inf

    @property
    def error(self):
        return self.ours.error or self.peer.error

    @property
    def missed(self):
        return bool(self.error) or (self.target > 0 and self.ratio > self.target)

    @property
    def mark(self):
        if self.error:
            return self.error.upper()
        if self.missed:
            return "MISSED"
        return "internal" if self.internal else ""


@dataclass
class Growth:
    what: str
    unit: str
    limit: float
    points: list = field(default_factory=list)  # size and measurement

    @property
    def error(self):
        return next((point.error for _, point in self.points if point.error), "")

    @property
    def exponent(self):
        """The slope of the line of least squares through the points on logarithmic axes."""
        if self.error or len(self.points) < 2:
            return math.nan
        sizes = [math.log(size) for size, _ in self.points]
        costs = [math.log(point.value) for _, point in self.points]
        return statistics.linear_regression(sizes, costs).slope

    @property
    def missed(self):
        return bool(self.error) or (self.limit > 0 and self.exponent > self.limit)

    @property
    def mark(self):
        return self.error.upper() or ("MISSED" if self.missed else "")


def bare_name(run_name):
    while (shorter := SUFFIX.sub("", run_name)) != run_name:
        run_name = shorter
    return run_name


def value_of(run):
    """The figure of a run, and its unit."""
    if "value" in run:
        return run["value"], run.get("label", "")
    clock = "real_time" if re.search(r"/(real|manual)_time", run["run_name"]) else "cpu_time"
    return run[clock] * UNITS[run["time_unit"]], "ns"


def measurement_of(runs):
    failed = next((run for run in runs if run.get("error_occurred")), None)
    if failed:
        return Measurement(error=f"failed: {failed.get('error_message', 'no reason')}")
    values = [value_of(run) for run in runs]
    figures = [value for value, _ in values]
    median = statistics.median(figures)
    spread = 0.0
    if len(figures) > 1 and median:
        quarters = statistics.quantiles(figures, n=4, method="inclusive")
        spread = (quarters[2] - quarters[0]) / 2 / median
    return Measurement(median, spread, values[0][1])


def read_measurements(path):
    """A dictionary from name to measurement; None if the program did not finish."""
    try:
        benchmarks = json.loads(path.read_text())["benchmarks"]
    except (OSError, ValueError, KeyError):
        return None
    runs = {}
    for run in benchmarks:
        if run["run_type"] == "iteration":
            runs.setdefault(bare_name(run["run_name"]), []).append(run)
    return {name: measurement_of(repetitions) for name, repetitions in runs.items()}


def measured(measurements, name):
    if measurements is None:
        return Measurement(error="failed: the program ended early")
    return measurements.get(name, Measurement(error="failed: not measured"))


def read_family(path):
    """The rows and the growths of a family, without those that a filter excluded."""
    measurements = read_measurements(path.with_suffix(".json"))
    rows, growths = [], {}
    for line in path.read_text().splitlines():
        kind, what, name, number, last = line.split("\t")
        if kind == "comparison":
            ours, peer = f"{what}/ours", f"{what}/{name}"
            if measurements is not None and ours not in measurements and peer not in measurements:
                continue
            other = Measurement(error="missing") if last == "missing" else measured(measurements, peer)
            internal = path.stem.endswith(INTERNAL)
            rows.append(Row(what, name, float(number), internal, measured(measurements, ours), other))
        else:
            point = f"{what}/{name} {last}"
            if measurements is not None and point not in measurements:
                continue
            growth = growths.setdefault(what, Growth(what, name, float(number)))
            growth.points.append((int(last), measured(measurements, point)))
    return rows, list(growths.values())


def shown(measurement):
    value, unit = measurement.value, measurement.unit
    if measurement.error:
        return "-"
    if unit == "ns":
        for name, size in reversed(UNITS.items()):
            if value >= size or name == "ns":
                return f"{value / size:.3g} {name}" if value / size < 1000 else f"{value / size:.0f} {name}"
    return f"{value:,.0f} {unit}".rstrip()


def spread_of(measurement):
    return "" if measurement.error else f"±{100 * measurement.spread:.0f} %"


def number(value):
    return "-" if math.isnan(value) else f"{value:.2f}"


def limit(value):
    return f"{value:g}" if value > 0 else "-"


COMPARISON = ("what", "ours", "", "peer", "", "", "ratio", "target", "")
COMPARISON_LEFT = {0, 5, 8}
GROWTH = ("what", "of", "1", "10", "100", "1,000", "10,000", "100,000", "1,000,000", "exponent", "limit", "")
GROWTH_LEFT = {0, 1, 11}


def comparison_cells(rows):
    return [(row.what, shown(row.ours), spread_of(row.ours), shown(row.peer), spread_of(row.peer), row.peer_name,
             number(row.ratio), limit(row.target), row.mark) for row in rows]


def growth_cells(growths):
    """One column for each power of ten. A cell names any other size."""
    lines = []
    for growth in growths:
        columns = {}
        for size, point in growth.points:
            power = round(math.log10(size))
            text = shown(point) if size == 10**power else f"{size:,}: {shown(point)}"
            columns[power] = f"{columns[power]}, {text}" if power in columns else text
        lines.append((growth.what, growth.unit, *(columns.get(power, "") for power in range(7)), number(growth.exponent),
                      limit(growth.limit), growth.mark))
    return lines


def plain(head, lines, left):
    lines = [head, *lines]
    widths = [max(len(line[i]) for line in lines) for i in range(len(head))]
    return "\n".join(
        "  ".join(cell.ljust(width) if i in left else cell.rjust(width) for i, (cell, width) in enumerate(zip(line, widths)))
        .rstrip() for line in lines) + "\n"


def markdown(head, lines, left):
    rule = ["---" if i in left else "--:" for i in range(len(head))]
    return "".join("| " + " | ".join(cell.replace("|", "\\|") for cell in line) + " |\n" for line in [head, rule, *lines])


def summary(rows, growths):
    targets = [row for row in rows + growths if row.error or (row.limit if isinstance(row, Growth) else row.target) > 0]
    broken = sum(bool(row.error) for row in targets)
    text = f"{sum(not row.missed for row in targets)} of {len(targets)} targets met"
    return f"{text}; {broken} of them failed or have no peer here\n" if broken else f"{text}\n"


def chart(rows):
    """One bar for each row. Its length is the ratio on a logarithmic scale, and a tick marks the target."""
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
        colour = "#c0392b" if row.missed else "#7f8c8d" if row.internal else "#2e86c1"
        name = html.escape(f"{row.what} / {row.peer_name}")
        length = 0 if row.error else scale(row.ratio)
        value = html.escape(row.error) if row.error else f"{row.ratio:.2f}"
        out.append(f'<text x="{label - 6}" y="{y + 11}" text-anchor="end">{name}</text>'
                   f'<rect x="{label}" y="{y}" width="{length:.1f}" height="{height - 4}" fill="{colour}"/>'
                   f'<text x="{label + length + 4:.1f}" y="{y + 11}">{value}</text>')
        if row.target > 0:
            x = label + scale(row.target)
            out.append(f'<line x1="{x:.1f}" y1="{y - 2}" x2="{x:.1f}" y2="{y + height - 2}" stroke="black" stroke-width="2"/>')
    out.append("</svg>")
    return "\n".join(out)


def fill_page(folder, page):
    """Replaces each part between `<!-- NAME -->` and `<!-- end -->` by FOLDER/NAME.md."""
    text = page.read_text()

    def block(match):
        source = folder / f"{match[1]}.md"
        if not source.exists():
            print(f"bench_report: {source} does not exist, the table on the page is unchanged", file=sys.stderr)
            return match[0]
        return f"<!-- {match[1]} -->\n{source.read_text()}<!-- end -->"

    page.write_text(re.sub(r"<!-- (\w+) -->\n.*?<!-- end -->", block, text, flags=re.DOTALL))


def main():
    folder = pathlib.Path(sys.argv[1])
    if sys.argv[2:3] == ["--page"]:
        return fill_page(folder, pathlib.Path(sys.argv[3]))
    families = sys.argv[2:]
    rows, growths = [], []
    for path in sorted(folder.glob("*.rows")):
        if families and path.stem not in families:
            continue
        family_rows, family_growths = read_family(path)
        rows += family_rows
        growths += family_growths
    if not rows and not growths:
        sys.exit(f"bench_report: no measurements in {folder}")
    rows.sort(key=lambda row: row.internal)
    comparisons = plain(COMPARISON, comparison_cells(rows), COMPARISON_LEFT)
    growing = plain(GROWTH, growth_cells(growths), GROWTH_LEFT)
    if not families:
        public = [row for row in rows if not row.internal]
        internal = [row for row in rows if row.internal]
        (folder / "table.txt").write_text(f"{comparisons}\n{summary(rows, growths)}")
        (folder / "growth.txt").write_text(growing)
        (folder / "chart.svg").write_text(chart(rows))
        (folder / "table.md").write_text(markdown(COMPARISON, comparison_cells(public), COMPARISON_LEFT)
                                         + f"\n{summary(rows, growths)}")
        (folder / "internal.md").write_text(markdown(COMPARISON, comparison_cells(internal), COMPARISON_LEFT))
        (folder / "growth.md").write_text(markdown(GROWTH, growth_cells(growths), GROWTH_LEFT))
    print(comparisons)
    if growths:
        print(growing)
    print(summary(rows, growths), end="")
    print("Ratio: ours divided by the peer, smaller is better. ± is half of the range of the middle half of the repetitions.")
    if not families:
        print(f"Chart: {folder / 'chart.svg'}")


if __name__ == "__main__":
    main()
