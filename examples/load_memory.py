"""How busy the machine is: load, tasks, uptime and memory.

Result: a dictionary. Values that the kernel does not provide are left out.
  load_1min, load_5min, load_15min  float, average number of threads that run or wait to run
  tasks_running, tasks_total        int, threads
  uptime_seconds                    float
  memory                            dictionary of int, bytes: total_bytes, available_bytes, free_bytes, buffers_bytes,
                                    cached_bytes, swap_total_bytes, swap_free_bytes

Arguments: none.
"""

import json
from pathlib import Path

MEMORY_KEYS = {
    "MemTotal": "total_bytes",
    "MemAvailable": "available_bytes",
    "MemFree": "free_bytes",
    "Buffers": "buffers_bytes",
    "Cached": "cached_bytes",
    "SwapTotal": "swap_total_bytes",
    "SwapFree": "swap_free_bytes",
}


def read(path):
    """The text of a file. Empty if it cannot be read."""
    try:
        return Path(path).read_text("utf-8", "replace")
    except OSError:
        return ""


def memory():
    fields = (line.split() for line in read("/proc/meminfo").splitlines())
    kilobytes = {name.rstrip(":"): int(number) for name, number, *_ in fields}
    return {key: kilobytes[name] * 1024 for name, key in MEMORY_KEYS.items() if name in kilobytes}


def collect(args):
    result = {}
    load = read("/proc/loadavg").split()  # such as "0.20 0.18 0.12 1/80 11206"
    if load:
        result.update(zip(("load_1min", "load_5min", "load_15min"), map(float, load)))
        result.update(zip(("tasks_running", "tasks_total"), map(int, load[3].split("/"))))
    uptime = read("/proc/uptime").split()
    if uptime:
        result["uptime_seconds"] = float(uptime[0])
    memory_now = memory()
    if memory_now:
        result["memory"] = memory_now
    return result


if __name__ == "__main__":
    print(json.dumps(collect({}), indent=2))
