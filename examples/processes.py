"""The processes that use the most memory, largest first.

Result: a list with a dictionary per process. A dictionary with process numbers as keys would fill the plug-in's memory,
because it remembers every key that it has met.
  pid        int
  name       str, at most 15 bytes; command lines are not reported, because they may contain secrets
  state      str, one letter: R running, S sleeping, D waiting for a device, T stopped, t traced
  threads    int
  rss_bytes  int, resident memory, including memory that is shared with other processes
Processes without memory of their own (kernel threads and ended processes) are left out.

Arguments:
  top  how many processes to report; default: 10
"""

import heapq
import json
import sys
from pathlib import Path


def process(directory):
    """The dictionary of the process with this directory. Empty if it has ended or has no memory."""
    try:
        text = (directory / "status").read_text("utf-8", "replace")
    except OSError:
        return {}
    fields = dict(line.split(":\t", 1) for line in text.split("\n") if ":\t" in line)
    if "VmRSS" not in fields:
        return {}
    return {
        "pid": int(directory.name),
        "name": fields["Name"],
        "state": fields["State"][0],
        "threads": int(fields["Threads"]),
        "rss_bytes": int(fields["VmRSS"].split()[0]) * 1024,  # such as "5120 kB"
    }


def collect(args):
    top = int(args.get("top") or 10)
    processes = filter(None, map(process, Path("/proc").glob("[0-9]*")))
    return heapq.nlargest(top, processes, key=lambda entry: entry["rss_bytes"])


if __name__ == "__main__":
    print(json.dumps(collect(dict(pair.split("=", 1) for pair in sys.argv[1:])), indent=2))
