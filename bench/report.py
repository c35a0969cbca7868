"""Prints the benchmark's table: scripts/bench runs this with the bench executable, the library and the shapes."""

import json
import os
import re
import statistics
import subprocess
import sys
import tempfile

import shapes

BENCH = sys.argv[1:4]
REPETITIONS = 9

# The wanted ratios: at most ("<=") or at least (">=") this number.
WANTED = {"ours/floor": ("<=", 1.4), "refused/ours": ("<=", 1.6), "json/ours": (">=", 5.0), "pickle/ours": (">=", 1.3)}
DISTINCT_KEYS_FLOOR = 2.0
DISTINCT_KEYS = {"20,000 distinct keys", "2,000 dicts, one key each own", "the same, keys never met"}
WITHOUT_DICTS = {"1,000 long texts", "100,000 integers"}


def run(*arguments):
    return subprocess.run([*BENCH, *arguments], check=True, stdout=subprocess.PIPE, universal_newlines=True).stdout


def medians(names):
    """{(shape, runner): (median nanoseconds of a collection, tokens)}, measured in one process in random order."""
    with tempfile.NamedTemporaryFile() as out:
        run(
            "--benchmark_filter=^(%s)/" % "|".join(names),
            "--benchmark_min_time=0.02",
            "--benchmark_repetitions=%d" % REPETITIONS,
            "--benchmark_enable_random_interleaving=true",
            "--benchmark_out_format=json",
            "--benchmark_out=" + out.name,
        )
        rows = json.load(open(out.name))["benchmarks"]
    times = {}
    for row in rows:
        if row["run_type"] == "iteration":
            key = tuple(re.split("/(?:iterations|manual_time)", row["name"])[0].rsplit("/", 1))
            times.setdefault(key, []).append((row["real_time"], row["tokens"]))
    return {key: (statistics.median(time for time, _ in runs), runs[0][1]) for key, runs in times.items()}


def wanted(shape, ratio):
    sign, limit = WANTED[ratio]
    if ratio == "ours/floor" and shape in DISTINCT_KEYS:
        limit = DISTINCT_KEYS_FLOOR
    return None if ratio == "pickle/ours" and shape in WITHOUT_DICTS else (sign, limit)


def cell(shape, ratio, value):
    """The ratio, with a mark (!) if it is not as wanted."""
    limit = wanted(shape, ratio) if ratio in WANTED else None
    missed = limit and (value > limit[1] if limit[0] == "<=" else value < limit[1])
    return "%.2f%s" % (value, " !" if missed else "")


def print_table(header, rows):
    widths = [max(len(row[i]) for row in [header, *rows]) for i in range(len(header))]
    for row in [header, ["-" * width for width in widths], *rows]:
        print("| " + " | ".join(text.ljust(width) for text, width in zip(row, widths)) + " |")
    print()


def print_shapes():
    times = medians(shapes.SHAPES)
    rivals = [r for r in ("json", "pickle", "marshal", "msgpack", "ujson") if ("100,000 integers", r) in times]
    rows = []
    for shape in shapes.SHAPES:
        ours, tokens = times[shape, "rubruf"]
        row = [shape, "%d" % tokens, "%.1f" % (ours / tokens)]
        row.append(cell(shape, "ours/floor", ours / times[shape, "floor"][0]))
        row.append(cell(shape, "refused/ours", times[shape, "refused"][0] / ours))
        row += [cell(shape, rival + "/ours", times[shape, rival][0] / ours) for rival in rivals]
        rows.append(row)
    print_table(["shape", "tokens", "ns/token", "ours/floor", "refused/ours", *(r + "/ours" for r in rivals)], rows)
    print("Wanted: ours/floor at most 1.4, at most 2.0 where keys are distinct; refused/ours at most 1.6; json/ours at")
    print("least 5; pickle/ours at least 1.3 for dictionaries. A figure that is not as wanted has a mark (!).\n")


def print_growth():
    times = medians(shapes.GROWTH)
    rows = []
    for name in shapes.GROWTH:
        time, tokens = times[name, "rubruf"]
        rows.append([name, "%.1f ns/token" % (time / tokens)])
    for scripts in (1, 4, 16, 64, 256):
        start = statistics.median(int(run("startup", str(scripts))) for _ in range(REPETITIONS))
        rows.append(["start of %d scripts" % scripts, "%.1f ms" % (start / 1e6)])
    rows += [[name, "%.1f" % value] for name, value in json.loads(run("memory")).items()]
    print_table(["growth", "figure"], rows)


def main():
    processor = re.search("model name\\s*: (.*)", open("/proc/cpuinfo").read())
    print("Conditions: %s; %s" % (os.environ["CONDITIONS"], processor.group(1) if processor else "unknown processor"))
    print("Medians of %d interleaved repetitions.\n" % REPETITIONS)
    print_shapes()
    print_growth()


main()
