"""Measures what the library adds to a program: bench_weight.py BUILD FOLDER.

BUILD is a release build with the target weights. Prints two tables and writes them to FOLDER/weight.md: the time and
memory that a program needs for the library, and the compile time of each public header.
"""

import collections
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

STARTS = 200
LOADS = 30
COMPILATIONS = 3
TIMERS = 10000
THREADS = 64
COMPILER = os.environ.get("CXX", "c++")
COMPARED_HEADERS = ("string", "map", "functional", "locale", "iostream")


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def cost_of(command, **options):
    """The CPU time and the elapsed time of a command, in seconds."""
    begin = time.perf_counter()
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL, **options)
    _, status, usage = os.wait4(child.pid, 0)
    elapsed = time.perf_counter() - begin
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"bench_weight: {' '.join(command)} failed")
    return usage.ru_utime + usage.ru_stime, elapsed


def starts(bare, linked):
    """The CPU time that the library adds to the start of a program, and that of the C++ runtime alone, in milliseconds."""
    runs = {bare: [], linked: []}
    for _ in range(STARTS):
        for program, costs in runs.items():
            costs.append(cost_of([str(program)])[0] * 1000)
    base = statistics.median(runs[bare])
    return statistics.median(runs[linked]) - base, base


def load_time(bare, library):
    return statistics.median(int(output(str(bare), str(library))) for _ in range(LOADS)) / 1e6


def relocations(library):
    kinds = collections.Counter()
    for line in output("readelf", "-rW", str(library)).splitlines():
        if match := re.match(r"[0-9a-f]+\s+[0-9a-f]+\s+(R_\w+)", line):
            kinds["relative" if "RELATIVE" in match[1] else "by name"] += 1
    return kinds


def sections(library):
    """The bytes of code and constants, of initialised data, and of data that is zero at first."""
    text, data, bss = output("size", str(library)).splitlines()[1].split()[:3]
    return int(text), int(data), int(bss)


def stripped_size(library, folder):
    copy = pathlib.Path(folder) / "stripped"
    subprocess.run(["strip", "-o", str(copy), str(library)], check=True)
    return copy.stat().st_size


def memory(program, folder, kind, count):
    """The bytes of the heap and the KiB of private memory that `count` objects need together."""
    text = subprocess.run([str(program.resolve()), kind, str(count)], check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                          cwd=folder, text=True).stdout
    heap, resident = text.split()
    return int(heap), int(resident)


def weigh(build, folder):
    programs = build / "bench"
    library = next((build / "src").glob("libkestsupport.so")).resolve()
    above, base = starts(programs / "weight_bare", programs / "weight_linked")
    kinds = relocations(library)
    text, data, bss = sections(library)
    exported = len(output("nm", "-D", "--defined-only", str(library)).splitlines())
    measure = programs / "weight_memory"
    logger_heap, logger = memory(measure, folder, "logger", 1)
    _, first_timer = memory(measure, folder, "timer", 1)
    timers_heap, timers = memory(measure, folder, "timer", TIMERS)
    threads_heap, threads = memory(measure, folder, "thread", THREADS)
    _, standard_threads = memory(measure, folder, "std::thread", THREADS)
    return [
        ("start of a process, above that of libstdc++", f"{above:.2f} ms CPU", f"libstdc++ alone: {base:.2f} ms"),
        ("load by dlopen, libstdc++ being there", f"{load_time(programs / 'weight_bare', library):.2f} ms", ""),
        ("relocations", f"{kinds.total():,}", ", ".join(f"{count:,} {kind}" for kind, count in kinds.items())),
        ("file, stripped", f"{stripped_size(library, folder) / 1024:,.0f} KiB", ""),
        ("code and constants", f"{text / 1024:,.0f} KiB", "shared by all processes"),
        ("data, data that is zero at first", f"{data / 1024:,.0f} KiB, {bss / 1024:,.0f} KiB", "of each process"),
        ("exported symbols", f"{exported:,}", ""),
        ("an idle logger with a file", f"{logger} KiB", f"{logger_heap:,} B of it on the heap"),
        ("the first active timer", f"{first_timer} KiB", "with the thread that fires"),
        ("an active timer of many", f"{timers * 1024 / TIMERS:,.0f} B", f"{timers_heap / TIMERS:,.0f} B on the heap"),
        ("an idle thread", f"{threads / THREADS:.1f} KiB",
         f"{threads_heap / THREADS:,.0f} B on the heap; std::thread: {standard_threads / THREADS:.1f} KiB"),
    ]


def compilation(include, source_folder, folder):
    """For a file with only that include: the CPU time of the compiler in milliseconds, and the lines after preprocessing."""
    source = pathlib.Path(folder) / "one.cpp"
    source.write_text(include)
    command = [COMPILER, "-std=c++20", "-O2", f"-I{source_folder / 'include'}", str(source)]
    costs = [cost_of([*command, "-c", "-o", os.devnull])[0] for _ in range(COMPILATIONS)]
    lines = sum(1 for line in output(*command, "-E", "-P").splitlines() if line.strip())
    return min(costs) * 1000, lines


def weigh_headers(source_folder, folder):
    empty, _ = compilation("", source_folder, folder)
    headers = sorted((source_folder / "include" / "support").glob("*.h"))
    names = [f"<{name}>" for name in COMPARED_HEADERS] + [f"support/{header.name}" for header in headers]
    rows = []
    for name in names:
        include = f"#include {name}\n" if name.startswith("<") else f'#include "{name}"\n'
        milliseconds, lines = compilation(include, source_folder, folder)
        rows.append((f"`{name}`", f"{milliseconds - empty:.0f} ms", f"{lines:,}"))
    return rows


def markdown(head, right, rows):
    rule = tuple("--:" if i in right else "---" for i in range(len(head)))
    return "".join("| " + " | ".join(row) + " |\n" for row in [head, rule, *rows])


def main():
    build, results = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    source_folder = pathlib.Path(__file__).resolve().parent.parent
    with tempfile.TemporaryDirectory() as folder:
        text = markdown(("what", "figure", "remark"), {1}, weigh(build, folder))
        text += "\n" + markdown(("header", "CPU time of the compiler", "lines"), {1, 2}, weigh_headers(source_folder, folder))
    (results / "weight.md").write_text(text)
    print(text, end="")


if __name__ == "__main__":
    main()
